#include <qel/markupstl.h>

#include <qel/fileexception.h>
#include <qel/inputfilestream.h>
#include <qel/safeoutputfilestream.h>

#include "base/markup/xmltext.h"
#include "base/serialization/textformat.h"

#include <cstring>

namespace qel
{

namespace
{

const u32 kTabulation = 4;

// Whether the element of an index slot has been removed.
const u32 kRemoved = 0;

} // namespace

// ---- checking and indexing ------------------------------------------------------

// One pass over the text: checks that it is well-formed and builds the
// index. Text between tags is skipped with memchr; only references are
// looked at in it.
class MarkupSTL::Checker
{
public:
    explicit Checker(MarkupSTL& document)
        : m_Document(document), m_Begin(document.m_Text.data()), m_At(m_Begin),
          m_End(m_Begin + document.m_Text.size())
    {
    }

    // The offset of the first error, or the text's size when there is none.
    bool Run()
    {
        Index& elements = m_Document.m_Elements;
        elements.clear();
        const u32 size = u32(m_End - m_Begin);
        elements.reserve(EstimateElements());
        elements.push_back(Element{0, 0, 0, size, size, 0, 0, 0, 0, 0});
        if (m_End - m_At >= 3 && std::memcmp(m_At, "\xEF\xBB\xBF", 3) == 0)
            m_At += 3;
        bool root = false;
        for (;;)
        {
            SkipSpace();
            if (m_At == m_End)
                return true;
            if (*m_At != '<')
                return Fail("text outside the root element");
            if (StartsWith("<?"))
            {
                if (!SkipPast("?>", "a processing instruction"))
                    return false;
            }
            else if (StartsWith("<!--"))
            {
                if (!SkipPast("-->", "a comment"))
                    return false;
            }
            else if (StartsWith("<!DOCTYPE"))
            {
                if (root)
                    return Fail("a DOCTYPE after the root element");
                if (!SkipDoctype())
                    return false;
            }
            else if (root)
                return Fail("a second root element");
            else
            {
                if (!ReadElement(0))
                    return false;
                root = true;
            }
        }
    }

private:
    // The start tags of the first 64 KB, scaled to the whole text with an
    // eighth more: the index of most documents then never grows (a growth
    // copies it and touches twice its pages), and the reserve's pages
    // that stay unused are never touched. The guess is bounded by one
    // element per 32 bytes, so that a head dense in tags before a long
    // text reserves no more than about the text's own size; denser
    // documents grow as needed.
    std::size_t EstimateElements() const
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

    bool Fail(const char* message)
    {
        m_Document.m_Error.assign(message);
        const u32 offset = u32(m_At - m_Begin);
        u32 line = 1, column = 1;
        for (const char* c = m_Begin; c != m_Begin + offset; ++c)
        {
            if (*c == '\n')
                ++line, column = 1;
            else
                ++column;
        }
        m_Document.m_ErrorLine = line;
        m_Document.m_ErrorColumn = column;
        return false;
    }

    bool StartsWith(const char* text) const
    {
        const std::size_t length = std::strlen(text);
        return std::size_t(m_End - m_At) >= length && std::memcmp(m_At, text, length) == 0;
    }

    void SkipSpace()
    {
        while (m_At != m_End && XmlText::IsSpace(*m_At))
            ++m_At;
    }

    bool SkipPast(const char* terminator, const char* what)
    {
        const std::size_t length = std::strlen(terminator);
        for (const char* at = m_At + 2;;)
        {
            at = static_cast<const char*>(std::memchr(at, terminator[0], std::size_t(m_End - at)));
            if (at == nullptr || std::size_t(m_End - at) < length)
            {
                char message[64];
                TextFormat::Print(message, sizeof message, "%s is not closed", what);
                return Fail(message);
            }
            if (std::memcmp(at, terminator, length) == 0)
            {
                m_At = at + length;
                return true;
            }
            ++at;
        }
    }

    bool SkipDoctype()
    {
        int depth = 0;
        for (m_At += 9; m_At != m_End; ++m_At)
        {
            if (*m_At == '[')
                ++depth;
            else if (*m_At == ']')
                --depth;
            else if (*m_At == '>' && depth <= 0)
            {
                ++m_At;
                return true;
            }
        }
        return Fail("the DOCTYPE is not closed");
    }

    bool ReadName(const char*& name, u32& length)
    {
        name = m_At;
        if (m_At == m_End || !XmlText::IsNameStart(*m_At))
            return Fail(m_At == m_End ? "the document ends where a name was expected"
                                      : "a name was expected");
        ++m_At;
        while (m_At != m_End && XmlText::IsNameChar(*m_At))
            ++m_At;
        length = u32(m_At - name);
        return true;
    }

    // Checks the references in [from, to), whose '&' characters are the
    // only ones that need a look.
    bool CheckReferences(const char* from, const char* to)
    {
        for (const char* at = from;;)
        {
            at = static_cast<const char*>(std::memchr(at, '&', std::size_t(to - at)));
            if (at == nullptr)
                return true;
            char bytes[4];
            u32 written;
            const std::size_t used =
                XmlText::DecodeReference(at, std::size_t(to - at), bytes, written);
            if (used == 0)
            {
                m_At = at;
                return Fail("an unknown or malformed reference");
            }
            at += used;
        }
    }

    bool ReadAttributes(const char* tag)
    {
        for (bool first = true;; first = false)
        {
            const char* before = m_At;
            SkipSpace();
            if (m_At == m_End)
                return Fail("the document ends inside a start tag");
            if (*m_At == '>' || *m_At == '/')
                return true;
            if (m_At == before)
                return Fail("attributes must be separated by white space");
            const char* name;
            u32 length;
            if (!ReadName(name, length))
                return false;
            // Duplicates: the attributes read so far in this tag.
            if (!first && FindAttributeName(tag, name) != nullptr)
            {
                m_At = name;
                return Fail("an attribute appears twice in a tag");
            }
            SkipSpace();
            if (m_At == m_End || *m_At != '=')
                return Fail("'=' was expected after an attribute name");
            ++m_At;
            SkipSpace();
            if (m_At == m_End || (*m_At != '"' && *m_At != '\''))
                return Fail("an attribute value must be quoted");
            const char quote = *m_At++;
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
            if (!CheckReferences(value, close))
                return false;
            m_At = close + 1;
        }
    }

    // An attribute of the tag starting at `tag` named as the one at `name`
    // (which ends at m_At), found before it.
    const char* FindAttributeName(const char* tag, const char* name) const
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

    bool ReadElement(u32 parent)
    {
        Index& elements = m_Document.m_Elements;
        const char* tag = m_At;
        ++m_At; // '<'
        const char* name;
        u32 length;
        if (!ReadName(name, length) || !ReadAttributes(tag))
            return false;
        const u32 index = u32(elements.size());
        Element element{u32(tag - m_Begin), length, 0, 0, 0, parent, 0, 0, 0, 0};
        Element& up = elements[parent];
        element.previousSibling = up.lastChild;
        if (up.lastChild)
            elements[up.lastChild].nextSibling = index;
        else
            up.firstChild = index;
        up.lastChild = index;
        ++m_Document.m_Count;
        if (*m_At == '/')
        {
            if (m_End - m_At < 2 || m_At[1] != '>')
                return Fail("'>' was expected after '/'");
            m_At += 2;
            element.contentStart = element.contentEnd = element.end = u32(m_At - m_Begin);
            elements.push_back(element);
            return true;
        }
        ++m_At; // '>'
        element.contentStart = u32(m_At - m_Begin);
        elements.push_back(element);
        for (;;)
        {
            const char* lt =
                static_cast<const char*>(std::memchr(m_At, '<', std::size_t(m_End - m_At)));
            if (lt == nullptr)
            {
                m_At = m_End;
                return Fail("the document ends inside an element");
            }
            if (!CheckReferences(m_At, lt))
                return false;
            m_At = lt;
            if (m_End - m_At >= 2 && m_At[1] == '/')
                break;
            if (StartsWith("<!--"))
            {
                if (!SkipPast("-->", "a comment"))
                    return false;
            }
            else if (StartsWith("<![CDATA["))
            {
                if (!SkipPast("]]>", "a CDATA section"))
                    return false;
            }
            else if (StartsWith("<?"))
            {
                if (!SkipPast("?>", "a processing instruction"))
                    return false;
            }
            else if (!ReadElement(index))
                return false;
        }
        Element& done = elements[index];
        done.contentEnd = u32(m_At - m_Begin);
        m_At += 2;
        const char* closing;
        u32 closingLength;
        if (!ReadName(closing, closingLength))
            return false;
        if (closingLength != length || std::memcmp(closing, name, length) != 0)
        {
            m_At = closing;
            return Fail("the end tag does not match the start tag");
        }
        SkipSpace();
        if (m_At == m_End || *m_At != '>')
            return Fail("'>' was expected to close an end tag");
        ++m_At;
        done.end = u32(m_At - m_Begin);
        return true;
    }

    MarkupSTL& m_Document;
    const char* m_Begin;
    const char* m_At;
    const char* m_End;
};

// ---- the document ---------------------------------------------------------------

MarkupSTL::MarkupSTL()
{
    SetDocument("", 0);
}

MarkupSTL::MarkupSTL(const char* document)
{
    SetDocument(document);
}

bool MarkupSTL::SetDocument(const char* text)
{
    return SetDocument(text, text ? u32(std::strlen(text)) : 0);
}

bool MarkupSTL::SetDocument(const char* text, u32 length)
{
    m_Text.assign(text ? text : "", length);
    return Parse();
}

bool MarkupSTL::Parse()
{
    m_Error.clear();
    m_ErrorLine = m_ErrorColumn = 0;
    m_Count = 0;
    m_Position = Position{0, 0, 0};
    if (Checker(*this).Run())
        return true;
    if (m_Error.empty())
        m_Error.assign("the document is not well-formed");
    // An ill-formed document holds no elements.
    m_Elements.resize(1);
    m_Elements[0].firstChild = m_Elements[0].lastChild = 0;
    m_Count = 0;
    return false;
}

bool MarkupSTL::Load(const char* path)
{
    try
    {
        InputFileStream stream(path);
        const u64 size = stream.GetSize();
        if (size >= 0xFFFFFFFFu)
        {
            m_Text.clear();
            Parse();
            m_Error.assign("the file is too large");
            return false;
        }
        m_Text.resize(std::size_t(size));
        m_Text.resize(stream.Read(&m_Text[0], u32(size)));
    }
    catch (const FileException& error)
    {
        m_Text.clear();
        Parse();
        m_Error.assign("the file cannot be read: ");
        m_Error += error.GetReason();
        return false;
    }
    return Parse();
}

bool MarkupSTL::Save(const char* path) const
{
    try
    {
        // Written beside the file and put in its place whole.
        SafeOutputFileStream stream(path);
        if (stream.Write(m_Text.data(), u32(m_Text.size())) != m_Text.size())
            return false;
        stream.Commit();
        return true;
    }
    catch (const FileException&)
    {
        return false;
    }
}

// ---- navigation -----------------------------------------------------------------

void MarkupSTL::ResetPosition()
{
    m_Position = Position{0, 0, 0};
}

void MarkupSTL::ResetMainPosition()
{
    m_Position.main = m_Position.child = 0;
}

void MarkupSTL::ResetChildPosition()
{
    m_Position.child = 0;
}

bool MarkupSTL::Matches(u32 element, const char* name) const
{
    if (name == nullptr)
        return true;
    const Element& e = m_Elements[element];
    return std::strncmp(m_Text.data() + e.start + 1, name, e.nameLength) == 0 &&
           name[e.nameLength] == 0;
}

u32 MarkupSTL::NextSibling(u32 after, u32 parent, const char* name) const
{
    u32 at = after ? m_Elements[after].nextSibling : m_Elements[parent].firstChild;
    while (at != 0 && !Matches(at, name))
        at = m_Elements[at].nextSibling;
    return at;
}

bool MarkupSTL::FindElement(const char* name)
{
    const u32 found = NextSibling(m_Position.main, m_Position.parent, name);
    if (found == 0)
        return false;
    m_Position.main = found;
    m_Position.child = 0;
    return true;
}

bool MarkupSTL::FindChildElement(const char* name)
{
    if (m_Position.main == 0)
        return false;
    const u32 found = NextSibling(m_Position.child, m_Position.main, name);
    if (found == 0)
        return false;
    m_Position.child = found;
    return true;
}

bool MarkupSTL::IntoElement()
{
    if (m_Position.main == 0)
        return false;
    m_Position = Position{m_Position.main, m_Position.child, 0};
    return true;
}

bool MarkupSTL::OutOfElement()
{
    if (m_Position.parent == 0)
        return false;
    m_Position = Position{m_Elements[m_Position.parent].parent, m_Position.parent, m_Position.main};
    return true;
}

// ---- reading --------------------------------------------------------------------

MarkupSTL::String MarkupSTL::TagName(u32 element) const
{
    if (element == 0)
        return String();
    const Element& e = m_Elements[element];
    return String(m_Text.data() + e.start + 1, e.nameLength);
}

namespace
{

// The first `terminator` in [from, to); the document was checked, so there
// is one (zero bytes in the text included).
const char* Search(const char* from, const char* to, const char* terminator)
{
    const std::size_t length = std::strlen(terminator);
    for (;; ++from)
    {
        from = static_cast<const char*>(std::memchr(from, terminator[0], std::size_t(to - from)));
        if (std::memcmp(from, terminator, length) == 0)
            return from;
    }
}

// Appends the decoded text of [from, to) (references, CDATA, line ends;
// comments and processing instructions left out) to `out`.
void Decode(const char* from, const char* to, MarkupSTL::String& out)
{
    while (from < to)
    {
        const char c = *from;
        if (c == '&')
        {
            char bytes[4];
            u32 written = 0;
            const std::size_t used =
                XmlText::DecodeReference(from, std::size_t(to - from), bytes, written);
            out.append(bytes, written);
            from += used ? used : 1;
        }
        else if (c == '\r')
        {
            out += '\n';
            from += (from + 1 < to && from[1] == '\n') ? 2 : 1;
        }
        else if (c == '<')
        {
            if (to - from >= 9 && std::memcmp(from, "<![CDATA[", 9) == 0)
            {
                const char* close = Search(from + 9, to, "]]>");
                out.append(from + 9, std::size_t(close - from - 9));
                from = close + 3;
            }
            else
            {
                // A comment or a processing instruction: checked at load.
                const bool comment = to - from >= 4 && std::memcmp(from, "<!--", 4) == 0;
                from = Search(from + 2, to, comment ? "-->" : "?>") + (comment ? 3 : 2);
            }
        }
        else
        {
            const char* run = from;
            while (run < to && *run != '&' && *run != '\r' && *run != '<')
                ++run;
            out.append(from, std::size_t(run - from));
            from = run;
        }
    }
}

} // namespace

MarkupSTL::String MarkupSTL::Data(u32 element) const
{
    String data;
    if (element == 0 || m_Elements[element].firstChild != 0)
        return data;
    const Element& e = m_Elements[element];
    Decode(m_Text.data() + e.contentStart, m_Text.data() + e.contentEnd, data);
    return data;
}

bool MarkupSTL::NextAttribute(u32& at, Span& name, Span& value) const
{
    const char* text = m_Text.data();
    while (XmlText::IsSpace(text[at]))
        ++at;
    if (!XmlText::IsNameStart(text[at]))
        return false; // '>' or "/>"
    name.start = at;
    while (XmlText::IsNameChar(text[at]))
        ++at;
    name.end = at;
    while (text[at] != '"' && text[at] != '\'')
        ++at;
    const char quote = text[at++];
    value.start = at;
    while (text[at] != quote)
        ++at;
    value.end = at++;
    return true;
}

bool MarkupSTL::FindAttribute(u32 element, const char* name, Span& value) const
{
    if (element == 0)
        return false;
    const Element& e = m_Elements[element];
    const std::size_t length = std::strlen(name);
    Span found;
    for (u32 at = e.start + 1 + e.nameLength; NextAttribute(at, found, value);)
        if (found.end - found.start == length &&
            std::memcmp(m_Text.data() + found.start, name, length) == 0)
            return true;
    return false;
}

MarkupSTL::String MarkupSTL::Attribute(u32 element, const char* name) const
{
    String value;
    Span found;
    if (FindAttribute(element, name, found))
    {
        String raw(m_Text.data() + found.start, found.end - found.start);
        // Attribute values read their white space characters as spaces.
        for (char& c : raw)
            if (c == '\t' || c == '\n' || c == '\r')
                c = ' ';
        Decode(raw.data(), raw.data() + raw.size(), value);
    }
    return value;
}

bool MarkupSTL::HasAttribute(const char* name) const
{
    Span value;
    return FindAttribute(m_Position.main, name, value);
}

MarkupSTL::String MarkupSTL::GetAttributeName(u32 index) const
{
    if (m_Position.main == 0)
        return String();
    const Element& e = m_Elements[m_Position.main];
    Span name, value;
    u32 at = e.start + 1 + e.nameLength;
    for (u32 n = 0; NextAttribute(at, name, value); ++n)
        if (n == index)
            return String(m_Text.data() + name.start, name.end - name.start);
    return String();
}

// ---- editing --------------------------------------------------------------------

void MarkupSTL::Splice(u32 from, u32 to, const String& text)
{
    m_Text.replace(from, to - from, text.data(), text.size());
    const u32 delta = u32(text.size()) - (to - from); // modulo 2^32
    // Offsets after the edited range move. At a pure insertion point an
    // element starting there moves, one whose content starts there keeps
    // it, content ending there grows (but not that of an empty-element tag,
    // which ends there too), an element ending there stays.
    const bool insertion = from == to;
    for (std::size_t i = 1; i < m_Elements.size(); ++i)
    {
        Element& e = m_Elements[i];
        if (e.nameLength == kRemoved)
            continue;
        if (e.start >= to)
            e.start += delta;
        if (insertion ? e.contentStart > to : e.contentStart >= to)
            e.contentStart += delta;
        if (e.contentEnd > to || (e.contentEnd == to && (!insertion || e.end > to)))
            e.contentEnd += delta;
        if (insertion ? e.end > to : e.end >= to)
            e.end += delta;
    }
    m_Elements[0].contentEnd = m_Elements[0].end = u32(m_Text.size());
}

u32 MarkupSTL::Depth(u32 element) const
{
    u32 depth = 0;
    for (; element != 0; element = m_Elements[element].parent)
        ++depth;
    return depth;
}

void MarkupSTL::Open(u32 element)
{
    Element& e = m_Elements[element];
    if (e.contentStart != e.end)
        return;
    // "<a .../>" becomes "<a ...></a>".
    String closing("></");
    closing.append(m_Text.data() + e.start + 1, e.nameLength);
    closing += '>';
    const u32 slash = e.end - 2;
    Splice(slash, e.end, closing);
    Element& opened = m_Elements[element];
    opened.contentStart = opened.contentEnd = slash + 1;
    opened.end = slash + u32(closing.size());
}

u32 MarkupSTL::AddUnder(u32 parent, u32 before, const char* name, const char* data)
{
    const std::size_t nameLength = name ? std::strlen(name) : 0;
    if (!IsWellFormed() || !XmlText::IsName(name, nameLength))
        return 0;
    if (parent == 0 && m_Elements[0].firstChild != 0)
        return 0; // one root only
    String element("<");
    element.append(name, nameLength);
    u32 contentLength = 0;
    if (data != nullptr)
    {
        element += '>';
        const std::size_t open = element.size();
        XmlText::Escape(data, std::strlen(data), false,
                        [&element](const char* piece, std::size_t size)
                        { element.append(piece, size); });
        contentLength = u32(element.size() - open);
        element += "</";
        element.append(name, nameLength);
        element += '>';
    }
    else
        element += "/>";

    // Where it goes, and the line break and indentation around it.
    u32 at;
    String text;
    u32 lead = 0; // characters before the element's '<'
    if (parent == 0)
    {
        at = u32(m_Text.size());
        if (at != 0 && m_Text.back() != '\n')
            text += '\n';
        lead = u32(text.size());
        text += element;
        text += '\n';
    }
    else
    {
        Open(parent);
        const Element& up = m_Elements[parent];
        const String indent(Depth(parent) * kTabulation, ' ');
        if (before != 0)
        {
            at = m_Elements[before].start;
            text = element + '\n' + indent;
        }
        else if (up.lastChild != 0)
        {
            at = m_Elements[up.lastChild].end;
            text = '\n' + indent + element;
            lead = u32(text.size() - element.size());
        }
        else if (up.contentStart == up.contentEnd)
        {
            at = up.contentStart;
            text = '\n' + indent + element + '\n' + String((Depth(parent) - 1) * kTabulation, ' ');
            lead = 1 + u32(indent.size());
        }
        else
        {
            at = up.contentEnd; // after the element's text
            text = element;
        }
    }
    Splice(at, at, text);

    Element made{};
    made.start = at + lead;
    made.nameLength = u32(nameLength);
    if (data != nullptr)
    {
        made.contentStart = made.start + 1 + u32(nameLength) + 1;
        made.contentEnd = made.contentStart + contentLength;
        made.end = made.contentEnd + 3 + u32(nameLength);
    }
    else
        made.contentStart = made.contentEnd = made.end = made.start + u32(nameLength) + 3;
    made.parent = parent;
    const u32 index = u32(m_Elements.size());
    Element& up = m_Elements[parent];
    if (before != 0)
    {
        made.nextSibling = before;
        made.previousSibling = m_Elements[before].previousSibling;
    }
    else
        made.previousSibling = up.lastChild;
    m_Elements.push_back(made);
    Element& linked = m_Elements[index];
    Element& owner = m_Elements[parent];
    if (linked.previousSibling)
        m_Elements[linked.previousSibling].nextSibling = index;
    else
        owner.firstChild = index;
    if (linked.nextSibling)
        m_Elements[linked.nextSibling].previousSibling = index;
    else
        owner.lastChild = index;
    ++m_Count;
    return index;
}

bool MarkupSTL::AddElement(const char* name, const char* data)
{
    const u32 made = AddUnder(m_Position.parent, 0, name, data);
    if (made == 0)
        return false;
    m_Position.main = made;
    m_Position.child = 0;
    return true;
}

bool MarkupSTL::InsertElement(const char* name, const char* data)
{
    const u32 before = m_Position.main ? m_Position.main : m_Elements[m_Position.parent].firstChild;
    const u32 made = AddUnder(m_Position.parent, before, name, data);
    if (made == 0)
        return false;
    m_Position.main = made;
    m_Position.child = 0;
    return true;
}

bool MarkupSTL::AddChildElement(const char* name, const char* data)
{
    if (m_Position.main == 0)
        return false;
    const u32 made = AddUnder(m_Position.main, 0, name, data);
    if (made == 0)
        return false;
    m_Position.child = made;
    return true;
}

bool MarkupSTL::InsertChildElement(const char* name, const char* data)
{
    if (m_Position.main == 0)
        return false;
    const u32 before = m_Position.child ? m_Position.child : m_Elements[m_Position.main].firstChild;
    const u32 made = AddUnder(m_Position.main, before, name, data);
    if (made == 0)
        return false;
    m_Position.child = made;
    return true;
}

void MarkupSTL::Unlink(u32 element)
{
    // The element and everything under it leave the index.
    Element& e = m_Elements[element];
    for (u32 child = e.firstChild; child != 0;)
    {
        const u32 next = m_Elements[child].nextSibling;
        Unlink(child);
        child = next;
    }
    Element& gone = m_Elements[element];
    Element& up = m_Elements[gone.parent];
    if (gone.previousSibling)
        m_Elements[gone.previousSibling].nextSibling = gone.nextSibling;
    else
        up.firstChild = gone.nextSibling;
    if (gone.nextSibling)
        m_Elements[gone.nextSibling].previousSibling = gone.previousSibling;
    else
        up.lastChild = gone.previousSibling;
    gone.nameLength = kRemoved;
    gone.firstChild = gone.lastChild = 0;
    --m_Count;
}

bool MarkupSTL::Remove(u32 element)
{
    if (element == 0)
        return false;
    const Element& e = m_Elements[element];
    const u32 parent = e.parent;
    u32 from = e.start;
    u32 to = e.end;
    // The element goes with the line break and indentation before it, when
    // they stand between tags (not at the end of text it follows).
    u32 indent = from;
    while (indent > 0 && (m_Text[indent - 1] == ' ' || m_Text[indent - 1] == '\t'))
        --indent;
    if (indent > 0 && m_Text[indent - 1] == '\n')
    {
        --indent;
        if (indent > 0 && m_Text[indent - 1] == '\r')
            --indent;
        if (indent > 0 && m_Text[indent - 1] == '>')
            from = indent;
    }
    Unlink(element);
    // The last child of an element leaves no white space behind as data.
    const Element& up = m_Elements[parent];
    if (parent != 0 && up.firstChild == 0)
    {
        bool blank = true;
        for (u32 i = up.contentStart; blank && i < up.contentEnd; ++i)
            blank = (i >= from && i < to) || XmlText::IsSpace(m_Text[i]);
        if (blank)
        {
            from = up.contentStart;
            to = up.contentEnd;
        }
    }
    Splice(from, to, String());
    return true;
}

bool MarkupSTL::RemoveElement()
{
    const u32 element = m_Position.main;
    if (element == 0)
        return false;
    const u32 previous = m_Elements[element].previousSibling;
    Remove(element);
    m_Position.main = previous;
    m_Position.child = 0;
    return true;
}

bool MarkupSTL::RemoveChildElement()
{
    const u32 element = m_Position.child;
    if (element == 0)
        return false;
    const u32 previous = m_Elements[element].previousSibling;
    Remove(element);
    m_Position.child = previous;
    return true;
}

bool MarkupSTL::SetData(u32 element, const char* data)
{
    if (element == 0)
        return false;
    Open(element);
    for (u32 child = m_Elements[element].firstChild; child != 0;)
    {
        const u32 next = m_Elements[child].nextSibling;
        Unlink(child);
        child = next;
    }
    String text;
    if (data != nullptr)
        XmlText::Escape(data, std::strlen(data), false,
                        [&text](const char* piece, std::size_t size) { text.append(piece, size); });
    const Element& e = m_Elements[element];
    Splice(e.contentStart, e.contentEnd, text);
    return true;
}

bool MarkupSTL::SetAttribute(u32 element, const char* name, const char* value)
{
    const std::size_t nameLength = name ? std::strlen(name) : 0;
    if (element == 0 || !XmlText::IsName(name, nameLength))
        return false;
    String escaped;
    XmlText::Escape(value ? value : "", value ? std::strlen(value) : 0, true,
                    [&escaped](const char* piece, std::size_t size)
                    { escaped.append(piece, size); });
    Span found;
    if (FindAttribute(element, name, found))
    {
        // Replaced between its quotes; a value in single quotes gets double
        // ones, which the escaping is for.
        Splice(found.start - 1, found.end + 1, '"' + escaped + '"');
        return true;
    }
    const Element& e = m_Elements[element];
    u32 close = e.contentStart - 1; // the '>'
    if (e.contentStart == e.end && m_Text[close - 1] == '/')
        --close;
    while (XmlText::IsSpace(m_Text[close - 1]))
        --close;
    String text(" ");
    text.append(name, nameLength);
    text += "=\"";
    text += escaped;
    text += '"';
    Splice(close, close, text);
    return true;
}

} // namespace qel
