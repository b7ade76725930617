// Elements and references of the markup document's check.
#include "base/markup/markupchecker.h"

#include <qel/errormanager.h>
#include <qel/report.h>

#include "base/markup/markupencoding.h"
#include "base/markup/markuptext.h"

#include <algorithm>

namespace qel
{

namespace
{

inline const char* SkipSpaces(const char* at)
{
    while (XmlText::IsSpace(*at))
        ++at;
    return at;
}

// Whether a predefined or character reference is at `at`, among
// `available` bytes; how many bytes it takes.
inline std::size_t SimpleReference(const char* at, std::size_t available)
{
    char bytes[4];
    u32 written;
    return XmlText::DecodeReference(at, available, bytes, written);
}

// Past the stop at `at` that the fast scans of text and values read on
// over: a simple reference, or one byte (a NUL, or in a value the other
// quote); null at a reference that needs the exact reader.
inline const char* PastStop(const char* at, const char* end)
{
    if (*at != '&')
        return at + 1;
    const std::size_t used = SimpleReference(at, std::size_t(end - at));
    return used == 0 ? nullptr : at + used;
}

} // namespace

// ---- the checker -----------------------------------------------------------------

const char* MarkupSTL::Checker::Find(const char* from, const char* to, const char* text)
{
    const std::size_t length = std::strlen(text);
    for (const char* at = from;; ++at)
    {
        at = static_cast<const char*>(std::memchr(at, text[0], std::size_t(to - at)));
        if (at == nullptr || std::size_t(to - at) < length)
            return nullptr;
        if (std::memcmp(at, text, length) == 0)
            return at;
    }
}

MarkupSTL::String MarkupSTL::Checker::Quoted(const char* what, const char* name, std::size_t length,
                                             const char* rest)
{
    MarkupSTL::String message(what);
    message += " '";
    message.append(name, length < 64 ? length : 64);
    message += "' ";
    message += rest;
    return message;
}

bool MarkupSTL::Checker::Run()
{
    // The fast paths of the element reader stop at the NUL that the
    // document's String keeps after its text.
    QEL_ASSERT(ErrorManager::BaseCategory, *m_End == '\0');
    Index& elements = m_Document.m_Elements;
    elements.clear();
    elements.reserve(EstimateElements());
    elements.push_back(Element{0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    if (m_End - m_At >= 3 && std::memcmp(m_At, "\xEF\xBB\xBF", 3) == 0)
        m_At += 3;
    m_Start = m_At;
    if (m_Strict)
    {
        const std::size_t good = XmlText::CharacterDataLength(m_At, std::size_t(m_End - m_At));
        if (m_At + good != m_End)
        {
            m_At += good;
            return Fail(static_cast<unsigned char>(*m_At) < 0x80 ? "a control character"
                                                                 : "bytes that are not UTF-8");
        }
    }
    bool root = false, doctype = false;
    for (;;)
    {
        SkipSpace();
        if (m_At == m_End)
            return root || !m_Strict || Fail("the document has no root element");
        if (*m_At != '<')
            return Fail("text outside the root element");
        if (StartsWith("<?"))
        {
            if (!ReadInstruction())
                return false;
        }
        else if (StartsWith("<!--"))
        {
            if (!ReadComment())
                return false;
        }
        else if (StartsWith("<!DOCTYPE"))
        {
            if (root)
                return Fail("a DOCTYPE after the root element");
            if (doctype && m_Strict)
                return Fail("a second DOCTYPE");
            if (!ReadDoctype())
                return false;
            doctype = true;
        }
        else if (root)
            return Fail("a second root element");
        else
        {
            if (!ReadElement())
                return false;
            root = true;
        }
    }
}

std::size_t MarkupSTL::Checker::EstimateElements() const
{
    const u64 size = u64(m_End - m_Begin);
    const u64 sample = size < 65536 ? size : 65536;
    u64 tags = 0;
    for (const char* c = m_Begin; c + 1 < m_Begin + sample; ++c)
        tags += c[0] == '<' && c[1] != '/' && c[1] != '!' && c[1] != '?';
    const u64 guess = sample ? tags * size / sample : 0;
    const u64 bound = size / 32;
    return std::size_t((guess + guess / 8 < bound ? guess + guess / 8 : bound) + 1);
}

bool MarkupSTL::Checker::NeedSpace(const char* what)
{
    if (m_At == m_End || !XmlText::IsSpace(*m_At))
        return Fail(m_At == m_End ? "the DOCTYPE is not closed" : what);
    SkipSpace();
    return true;
}

bool MarkupSTL::Checker::ReadLiteral(const char*& value, const char*& close)
{
    if (m_At == m_End || (*m_At != '"' && *m_At != '\''))
        return Fail("a quoted literal was expected");
    const char quote = *m_At;
    value = m_At + 1;
    close = static_cast<const char*>(std::memchr(value, quote, std::size_t(m_End - value)));
    if (close == nullptr)
        return Fail("a literal is not closed");
    m_At = close + 1;
    return true;
}

inline bool MarkupSTL::Checker::CheckText(const char* from, const char* to, bool attribute)
{
    if (m_Strict && !attribute)
        if (const char* cdataEnd = Find(from, to, "]]>"))
        {
            m_At = cdataEnd;
            return Fail("']]>' in text");
        }
    for (const char* at = from;;)
    {
        at = static_cast<const char*>(std::memchr(at, '&', std::size_t(to - at)));
        if (at == nullptr)
            return true;
        char bytes[4];
        u32 written;
        std::size_t used = XmlText::DecodeReference(at, std::size_t(to - at), bytes, written);
        if (used == 0 && !CheckEntityReference(at, to, attribute, used))
            return false;
        at += used;
    }
}

const char* MarkupSTL::Checker::EntityReferenceEnd(const char* at, const char* to)
{
    const char* end = at + 1;
    while (end != to && XmlText::IsNameChar(*end))
        ++end;
    return end == at + 1 || !XmlText::IsNameStart(at[1]) || end == to || *end != ';' ? nullptr
                                                                                     : end;
}

bool MarkupSTL::Checker::CheckEntityReference(const char* at, const char* to, bool attribute,
                                              std::size_t& used)
{
    m_At = at;
    const char* name = at + 1;
    const char* end = EntityReferenceEnd(at, to);
    if (end == nullptr)
        return Fail("an unknown or malformed reference");
    used = std::size_t(end + 1 - at);
    Entity* entity = m_Document.FindEntity(name, std::size_t(end - name));
    if (entity == nullptr)
        return m_Document.m_KeepUnknownEntities ||
               Fail(Quoted("the entity", name, std::size_t(end - name), "is not declared").c_str());
    if (entity->external && attribute)
        return Fail(Quoted("the entity", name, std::size_t(end - name),
                           "is external, which an attribute value cannot refer to")
                        .c_str());
    if (entity->external)
        return true; // not read: kept as text
    if (!CheckEntity(*entity))
        return Fail(Quoted("the entity", name, std::size_t(end - name), entity->error).c_str());
    if (entity->markup)
        return Fail(attribute ? "'<' in an attribute value (from an entity)"
                              : Quoted("the entity", name, std::size_t(end - name),
                                       "holds markup, which is not read")
                                    .c_str());
    m_Expanded += entity->length;
    if (m_Expanded > kMaxEntityExpansion)
        return Fail("entity references expand past the bound on entity expansion");
    return true;
}

inline const char* MarkupSTL::Checker::ScanText() const
{
    for (const char* at = m_At;;)
    {
        while (!(XmlText::ClassOf(*at) & XmlText::kTextStop))
            ++at;
        if (*at == '<')
            return at;
        if (at == m_End)
            return nullptr;
        at = PastStop(at, m_End);
        if (at == nullptr)
            return nullptr;
    }
}

inline bool MarkupSTL::Checker::ScanValue(char quote)
{
    for (const char* at = m_At;;)
    {
        while (!(XmlText::ClassOf(*at) & XmlText::kValueStop))
            ++at;
        if (*at == quote)
        {
            m_At = at + 1;
            return true;
        }
        if (*at == '<' || at == m_End)
            return false;
        at = PastStop(at, m_End);
        if (at == nullptr)
            return false;
    }
}

inline bool MarkupSTL::Checker::ReadValue(char quote)
{
    const char* value = m_At;
    const char* close =
        static_cast<const char*>(std::memchr(m_At, quote, std::size_t(m_End - m_At)));
    if (close == nullptr)
        return Fail("an attribute value is not closed");
    if (const char* lt =
            static_cast<const char*>(std::memchr(value, '<', std::size_t(close - value))))
    {
        m_At = lt;
        return Fail("'<' in an attribute value");
    }
    if (!CheckText(value, close, true))
        return false;
    m_At = close + 1;
    return true;
}

inline bool MarkupSTL::Checker::ReadAttributes(const char* tag)
{
    // The names read so far, to find a duplicate; past the first few, the
    // tag is read again.
    const u32 kKept = 16;
    const char* names[kKept];
    u32 lengths[kKept];
    for (u32 count = 0;; ++count)
    {
        const char* before = m_At;
        m_At = SkipSpaces(m_At);
        if (*m_At == '>' || *m_At == '/')
            return true;
        if (m_At == m_End)
            return Fail("the document ends inside a start tag");
        if (m_At == before)
            return Fail("attributes must be separated by white space");
        const char* name;
        u32 length;
        if (!ReadName(name, length))
            return false;
        bool twice = false;
        if (count > kKept)
            twice = FindAttributeName(tag, name) != nullptr;
        else
            for (u32 i = 0; i < count && !twice; ++i)
                twice = lengths[i] == length && XmlText::SameBytes(names[i], name, length);
        if (twice)
        {
            m_At = name;
            return Fail("an attribute appears twice in a tag");
        }
        if (count < kKept)
        {
            names[count] = name;
            lengths[count] = length;
        }
        m_At = SkipSpaces(m_At);
        if (*m_At != '=')
            return Fail("'=' was expected after an attribute name");
        m_At = SkipSpaces(m_At + 1);
        const char quote = *m_At;
        if (quote != '"' && quote != '\'')
            return Fail("an attribute value must be quoted");
        ++m_At;
        if (!ScanValue(quote) && !ReadValue(quote))
            return false;
    }
}

inline const char* MarkupSTL::Checker::FindAttributeName(const char* tag, const char* name) const
{
    const std::size_t length = std::size_t(m_At - name);
    // Skip the tag's name, then look at every attribute name before
    // `name`.
    const char* at = tag + 1;
    while (XmlText::IsNameChar(*at))
        ++at;
    while (at < name)
    {
        while (at < name && XmlText::IsSpace(*at))
            ++at;
        const char* other = at;
        while (at < name && XmlText::IsNameChar(*at))
            ++at;
        if (at >= name)
            return nullptr;
        if (std::size_t(at - other) == length && std::memcmp(other, name, length) == 0)
            return other;
        // Past '=' and the quoted value.
        while (*at != '"' && *at != '\'')
            ++at;
        const char quote = *at++;
        while (*at != quote)
            ++at;
        ++at;
    }
    return nullptr;
}

inline bool MarkupSTL::Checker::ReadStartTag(u32 parent, u32& index, bool& open)
{
    Index& elements = m_Document.m_Elements;
    const char* tag = m_At;
    ++m_At; // '<'
    const char* name;
    u32 length;
    if (!ReadName(name, length) || !ReadAttributes(tag))
        return false;
    index = u32(elements.size());
    Element element{u32(tag - m_Begin), length, 0, 0, 0, parent, 0, 0, 0, 0};
    Element& up = elements[parent];
    element.previousSibling = up.lastChild;
    if (up.lastChild)
        elements[up.lastChild].nextSibling = index;
    else
        up.firstChild = index;
    up.lastChild = index;
    ++m_Document.m_Count;
    open = *m_At != '/';
    if (!open)
    {
        if (m_End - m_At < 2 || m_At[1] != '>')
            return Fail("'>' was expected after '/'");
        ++m_At;
        element.open = element.close = element.end = u32(m_At - m_Begin);
    }
    else
        element.open = u32(m_At - m_Begin);
    ++m_At;
    elements.push_back(element);
    return true;
}

inline bool MarkupSTL::Checker::ScanEndTag(u32 element)
{
    Element& done = m_Document.m_Elements[element];
    const char* closing = m_At + 2;
    const u32 length = done.nameLength;
    if (std::size_t(m_End - closing) < length ||
        !XmlText::SameBytes(closing, m_Begin + done.start + 1, length) ||
        XmlText::IsNameChar(closing[length]))
        return false;
    const char* close = SkipSpaces(closing + length);
    if (*close != '>')
        return false;
    done.close = u32(m_At - m_Begin);
    done.end = u32(close - m_Begin);
    m_At = close + 1;
    return true;
}

inline bool MarkupSTL::Checker::ReadEndTag(u32 element)
{
    Element& done = m_Document.m_Elements[element];
    done.close = u32(m_At - m_Begin);
    m_At += 2;
    const char* closing;
    u32 closingLength;
    if (!ReadName(closing, closingLength))
        return false;
    if (closingLength != done.nameLength ||
        std::memcmp(closing, m_Begin + done.start + 1, closingLength) != 0)
    {
        m_At = closing;
        return Fail("the end tag does not match the start tag");
    }
    SkipSpace();
    if (m_At == m_End || *m_At != '>')
        return Fail("'>' was expected to close an end tag");
    done.end = u32(m_At - m_Begin);
    ++m_At;
    return true;
}

inline bool MarkupSTL::Checker::ReadElement()
{
    const Index& elements = m_Document.m_Elements;
    u32 open = 0; // the innermost open element
    for (;;)
    {
        u32 index;
        bool opened;
        if (!ReadStartTag(open, index, opened))
            return false;
        if (opened)
            open = index;
        // The content up to the next start tag, closing elements on the
        // way.
        for (;;)
        {
            if (open == 0)
                return true;
            const char* lt = m_Strict ? nullptr : ScanText();
            if (lt == nullptr)
            {
                lt = static_cast<const char*>(std::memchr(m_At, '<', std::size_t(m_End - m_At)));
                if (lt == nullptr)
                {
                    m_At = m_End;
                    return Fail("the document ends inside an element");
                }
                if (!CheckText(m_At, lt, false))
                    return false;
            }
            m_At = lt;
            if (XmlText::IsNameStart(m_At[1]))
                break;
            if (m_At[1] == '/')
            {
                if (!ScanEndTag(open) && !ReadEndTag(open))
                    return false;
                open = elements[open].parent;
            }
            else if (StartsWith("<!--"))
            {
                if (!ReadComment())
                    return false;
            }
            else if (StartsWith("<![CDATA["))
            {
                if (!SkipPast("]]>", "a CDATA section"))
                    return false;
            }
            else if (StartsWith("<?"))
            {
                if (!ReadInstruction())
                    return false;
            }
            else
                break;
        }
    }
}

// ---- taking a document -----------------------------------------------------------

MarkupSTL::Entity* MarkupSTL::FindEntity(const char* name, std::size_t length) const
{
    auto found = std::lower_bound(m_Entities.begin(), m_Entities.end(), 0,
                                  [name, length](const Entity& e, int)
                                  { return e.name.compare(0, e.name.size(), name, length) < 0; });
    if (found == m_Entities.end() || found->name.size() != length ||
        std::memcmp(found->name.data(), name, length) != 0)
        return nullptr;
    return const_cast<Entity*>(&*found);
}

void MarkupSTL::SetError(const char* message, u32 offset)
{
    m_Error.assign(message);
    const char* text = m_Text->At(0);
    // Columns count bytes, after the byte order mark.
    const bool mark = offset >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0;
    u32 line = 1, column = 1;
    for (const char* c = text + (mark ? 3 : 0); c != text + offset; ++c)
    {
        if (*c == '\n')
            ++line, column = 1;
        else
            ++column;
    }
    m_ErrorLine = line;
    m_ErrorColumn = column;
}

bool MarkupSTL::Take(String& bytes)
{
    using namespace MarkupEncoding;
    const Kind detected = Detect(bytes.data(), bytes.size());
    m_Encoding = detected;
    const char* failure = nullptr;
    String message;
    std::size_t at = 0, length;
    if (detected != kUtf8)
    {
        String text;
        if (!ToUtf8(detected, bytes.data(), bytes.size(), text))
            failure = "the document is not valid UTF-16";
        at = text.size();
        bytes.swap(text);
    }
    Kind declared;
    if (failure == nullptr && DeclaredValue(bytes.data(), bytes.size(), "encoding", at, length))
    {
        const char* name = bytes.data() + at;
        if (!FromName(name, length, declared))
            message = Checker::Quoted("the encoding", name, length, "is not supported");
        else if (detected != kUtf8 && declared != kUtf16LE)
            message = Checker::Quoted("the document is in UTF-16 but declares the encoding", name,
                                      length, "");
        else if (detected == kUtf8 && declared == kUtf16LE)
            message = Checker::Quoted("the document declares the encoding", name, length,
                                      "but is not in UTF-16");
        else if (declared == kLatin1)
        {
            String text;
            ToUtf8(kLatin1, bytes.data(), bytes.size(), text);
            bytes.swap(text);
            m_Encoding = kLatin1;
        }
        if (!message.empty())
        {
            while (message.back() == ' ')
                message.pop_back();
            failure = message.c_str();
        }
    }
    m_Text->Assign(static_cast<String&&>(bytes));
    return Parse(failure, u32(at));
}

bool MarkupSTL::Parse(const char* failure, u32 offset)
{
    m_Error.clear();
    m_ErrorLine = m_ErrorColumn = 0;
    m_Count = 0;
    m_Position = Position{0, 0, 0};
    m_Entities.clear();
    m_Declarations.clear();
    m_KeepUnknownEntities = false;
    if (failure != nullptr)
        SetError(failure, offset);
    else if (Checker(*this, m_Text->At(0), m_Text->Size()).Run())
        return true;
    if (m_Error.empty())
        m_Error.assign("the document is not well-formed");
    // An ill-formed document holds no elements.
    m_Elements.assign(1, Element{0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    m_Count = 0;
    return false;
}

} // namespace qel
