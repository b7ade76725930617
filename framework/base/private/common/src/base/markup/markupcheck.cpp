// The markup document's well-formedness check: one pass over the text that
// builds the element index, reads the DOCTYPE's internal subset and checks
// every reference, without recursion on depth.
#include <qel/markupstl.h>

#include "base/markup/markupencoding.h"
#include "base/markup/markuptext.h"
#include "base/markup/xmltext.h"

#include <algorithm>
#include <cstring>

namespace qel
{

namespace
{

// The states of an entity: its replacement text is checked when a
// reference first needs it.
enum : u32
{
    kUnchecked,
    kChecking,
    kGood,
    kBad,
};

const char* Find(const char* from, const char* to, const char* text)
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

MarkupSTL::String Quoted(const char* what, const char* name, std::size_t length, const char* rest)
{
    MarkupSTL::String message(what);
    message += " '";
    message.append(name, length < 64 ? length : 64);
    message += "' ";
    message += rest;
    return message;
}

} // namespace

// ---- the checker -----------------------------------------------------------------

class MarkupSTL::Checker
{
public:
    Checker(MarkupSTL& document, const char* text, u32 size)
        : m_Document(document), m_Begin(text), m_At(text), m_End(text + size),
          m_Strict(document.m_Strict)
    {
    }

    bool Run()
    {
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
        m_Document.SetError(message, u32(m_At - m_Begin));
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

    // White space that XML requires, then any more.
    bool NeedSpace(const char* what)
    {
        if (m_At == m_End || !XmlText::IsSpace(*m_At))
            return Fail(m_At == m_End ? "the DOCTYPE is not closed" : what);
        SkipSpace();
        return true;
    }

    bool SkipPast(const char* terminator, const char* what)
    {
        const char* found = Find(m_At + 2, m_End, terminator);
        if (found == nullptr)
        {
            MarkupSTL::String message(what);
            message += " is not closed";
            return Fail(message.c_str());
        }
        m_At = found + std::strlen(terminator);
        return true;
    }

    bool ReadComment()
    {
        const char* comment = m_At;
        if (!SkipPast("-->", "a comment"))
            return false;
        if (m_Strict)
        {
            // The first "--" must be the one that closes it.
            const char* dashes = Find(comment + 4, m_At, "--");
            if (dashes != m_At - 3)
            {
                m_At = dashes;
                return Fail("'--' inside a comment");
            }
        }
        return true;
    }

    bool ReadInstruction()
    {
        if (m_Strict && m_At != m_Start && m_End - m_At >= 6 && (m_At[2] | 0x20) == 'x' &&
            (m_At[3] | 0x20) == 'm' && (m_At[4] | 0x20) == 'l' &&
            (XmlText::IsSpace(m_At[5]) || m_At[5] == '?'))
            return Fail("an XML declaration that is not at the start of the document");
        return SkipPast("?>", "a processing instruction");
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

    // ---- the DOCTYPE

    bool ReadLiteral(const char*& value, const char*& close)
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

    // SYSTEM "literal" or PUBLIC "literal" "literal", when there is one.
    bool ReadExternalId(bool& found)
    {
        const char* value;
        const char* close;
        found = StartsWith("SYSTEM") || StartsWith("PUBLIC");
        if (!found)
            return true;
        const bool public_ = *m_At == 'P';
        m_At += 6;
        if (!NeedSpace("white space was expected") || !ReadLiteral(value, close))
            return false;
        if (public_ && (!NeedSpace("white space was expected") || !ReadLiteral(value, close)))
            return false;
        return true;
    }

    bool ReadDoctype()
    {
        const char* name;
        u32 length;
        bool external;
        m_At += 9;
        if (!NeedSpace("white space was expected after DOCTYPE") || !ReadName(name, length))
            return false;
        SkipSpace();
        if (!ReadExternalId(external))
            return false;
        SkipSpace();
        if (m_At != m_End && *m_At == '[')
        {
            ++m_At;
            if (!ReadInternalSubset())
                return false;
            SkipSpace();
        }
        if (m_At == m_End)
            return Fail("the DOCTYPE is not closed");
        if (*m_At != '>')
            return Fail("'>' was expected to close the DOCTYPE");
        ++m_At;

        std::size_t at, valueLength;
        const bool standalone = MarkupEncoding::DeclaredValue(m_Begin, std::size_t(m_End - m_Begin),
                                                              "standalone", at, valueLength) &&
                                valueLength == 3 && std::memcmp(m_Begin + at, "yes", 3) == 0;
        m_Document.m_KeepUnknownEntities =
            m_Document.m_KeepUnknownEntities || ((external || m_ParameterReference) && !standalone);
        // By name; the first declaration of a name binds.
        Entities& entities = m_Document.m_Entities;
        std::stable_sort(entities.begin(), entities.end(),
                         [](const Entity& a, const Entity& b) { return a.name < b.name; });
        entities.erase(std::unique(entities.begin(), entities.end(),
                                   [](const Entity& a, const Entity& b)
                                   { return a.name == b.name; }),
                       entities.end());
        return true;
    }

    bool ReadInternalSubset()
    {
        for (;;)
        {
            SkipSpace();
            if (m_At == m_End)
                return Fail("the DOCTYPE is not closed");
            if (*m_At == ']')
            {
                ++m_At;
                return true;
            }
            bool good;
            if (*m_At == '%')
            {
                const char* name;
                u32 length;
                ++m_At;
                if (!ReadName(name, length))
                    return false;
                if (m_At == m_End || *m_At != ';')
                    return Fail("';' was expected after a parameter entity reference");
                ++m_At;
                m_ParameterReference = true;
                continue;
            }
            if (StartsWith("<!--"))
                good = ReadComment();
            else if (StartsWith("<?"))
                good = ReadInstruction();
            else if (StartsWith("<!ENTITY"))
                good = ReadEntity();
            else if (StartsWith("<!"))
                good = SkipDeclaration();
            else
                return Fail("a markup declaration was expected in the DOCTYPE");
            if (!good)
                return false;
        }
    }

    // An element, attribute-list or notation declaration: to its '>',
    // past quoted literals.
    bool SkipDeclaration()
    {
        for (m_At += 2; m_At != m_End; ++m_At)
        {
            if (*m_At == '>')
            {
                ++m_At;
                return true;
            }
            if (*m_At == '"' || *m_At == '\'')
            {
                const char* value;
                const char* close;
                if (!ReadLiteral(value, close))
                    return false;
                --m_At;
            }
        }
        return Fail("a markup declaration is not closed");
    }

    bool ReadEntity()
    {
        m_At += 8;
        if (!NeedSpace("white space was expected after ENTITY"))
            return false;
        const bool parameter = *m_At == '%';
        if (parameter)
        {
            ++m_At;
            if (!NeedSpace("white space was expected after '%'"))
                return false;
        }
        const char* name;
        u32 length;
        if (!ReadName(name, length) || !NeedSpace("white space was expected after the entity name"))
            return false;
        Entity entity{String(name, length), String(), 0, kUnchecked, false, false, nullptr};
        bool external = false;
        if (*m_At == '"' || *m_At == '\'')
        {
            if (!ReadEntityValue(entity.text))
                return false;
        }
        else
        {
            if (!ReadExternalId(external))
                return false;
            if (!external)
                return Fail("an entity value or an external identifier was expected");
            entity.external = true;
            SkipSpace();
            if (StartsWith("NDATA"))
            {
                m_At += 5;
                const char* notation;
                u32 notationLength;
                if (!NeedSpace("white space was expected after NDATA") ||
                    !ReadName(notation, notationLength))
                    return false;
                entity.external = false; // unparsed: no reference may name it
                entity.state = kBad;
                entity.error = "is an unparsed entity, which no reference may name";
            }
        }
        SkipSpace();
        if (m_At == m_End || *m_At != '>')
            return Fail("'>' was expected to close an entity declaration");
        ++m_At;
        char bytes[4];
        u32 written;
        const MarkupSTL::String reference = '&' + entity.name + ';';
        const bool predefined =
            XmlText::DecodeReference(reference.data(), reference.size(), bytes, written) != 0;
        if (!parameter && !predefined)
            m_Document.m_Entities.push_back(entity);
        return true;
    }

    // The replacement text of a literal entity value: line ends read as
    // LF, character references replaced, entity references kept.
    bool ReadEntityValue(String& text)
    {
        const char quote = *m_At++;
        for (;;)
        {
            const char* run = m_At;
            while (m_At != m_End && *m_At != quote && *m_At != '&' && *m_At != '%' && *m_At != '\r')
                ++m_At;
            text.append(run, std::size_t(m_At - run));
            if (m_At == m_End)
                return Fail("a literal is not closed");
            if (*m_At == quote)
            {
                ++m_At;
                return true;
            }
            if (*m_At == '%')
                return Fail("a parameter entity reference inside an entity value");
            if (*m_At == '\r')
            {
                text += '\n';
                m_At += m_End - m_At >= 2 && m_At[1] == '\n' ? 2 : 1;
                continue;
            }
            char bytes[4];
            u32 written = 0;
            if (m_End - m_At >= 2 && m_At[1] == '#')
            {
                const std::size_t used =
                    XmlText::DecodeReference(m_At, std::size_t(m_End - m_At), bytes, written);
                if (used == 0)
                    return Fail("an unknown or malformed reference");
                text.append(bytes, written);
                m_At += used;
                continue;
            }
            const char* reference = m_At++;
            const char* name;
            u32 length;
            if (!ReadName(name, length))
                return false;
            if (m_At == m_End || *m_At != ';')
                return Fail("';' was expected after an entity reference");
            ++m_At;
            text.append(reference, std::size_t(m_At - reference));
        }
    }

    // Checks the replacement text of `entity` and the entities it refers
    // to, with a stack of its own: their expanded lengths, whether they
    // hold markup, and their errors.
    bool CheckEntity(Entity& entity)
    {
        if (entity.state == kGood || entity.state == kBad)
            return entity.state == kGood;
        struct Frame
        {
            Entity* entity;
            std::size_t at;
        };
        std::vector<Frame, GeneralAllocator<Frame>> stack;
        const char* error = nullptr;
        stack.push_back(Frame{&entity, 0});
        entity.state = kChecking;
        while (!stack.empty())
        {
            if (stack.back().entity->length > kMaxEntityExpansion)
                error = "expands past the bound on entity expansion";
            if (error != nullptr)
                break;
            Frame& frame = stack.back();
            Entity& e = *frame.entity;
            const String& text = e.text;
            const std::size_t amp = text.find('&', frame.at);
            const std::size_t stop = amp == String::npos ? text.size() : amp;
            e.length += stop - frame.at;
            e.markup = e.markup || std::memchr(text.data() + frame.at, '<', stop - frame.at);
            frame.at = stop;
            if (amp == String::npos)
            {
                e.state = kGood;
                stack.pop_back();
                if (!stack.empty())
                {
                    Entity& up = *stack.back().entity;
                    up.length += e.length;
                    up.markup = up.markup || e.markup;
                }
                continue;
            }
            char bytes[4];
            u32 written = 0;
            const std::size_t used =
                XmlText::DecodeReference(text.data() + amp, text.size() - amp, bytes, written);
            if (used != 0)
            {
                e.length += written;
                e.markup = e.markup || bytes[0] == '<';
                frame.at = amp + used;
                continue;
            }
            const std::size_t semicolon = text.find(';', amp);
            if (semicolon == String::npos ||
                !XmlText::IsName(text.data() + amp + 1, semicolon - amp - 1))
            {
                error = "holds a malformed reference";
                break;
            }
            frame.at = semicolon + 1;
            Entity* inner = m_Document.FindEntity(text.data() + amp + 1, semicolon - amp - 1);
            if (inner == nullptr)
            {
                if (!m_Document.m_KeepUnknownEntities)
                    error = "refers to an entity that is not declared";
                e.length += semicolon + 1 - amp;
            }
            else if (inner->external)
                e.length += semicolon + 1 - amp; // not read: kept as text
            else if (inner->state == kChecking)
                error = "refers to itself";
            else if (inner->state == kBad)
                error = inner->error;
            else if (inner->state == kGood)
            {
                e.length += inner->length;
                e.markup = e.markup || inner->markup;
            }
            else
            {
                inner->state = kChecking;
                stack.push_back(Frame{inner, 0});
            }
        }
        for (Frame& frame : stack)
        {
            frame.entity->state = kBad;
            frame.entity->error = error;
        }
        return entity.state == kGood;
    }

    // ---- elements

    // Checks the references in [from, to), whose '&' characters are the
    // only ones that need a look, and in strict mode that the text holds
    // no "]]>".
    bool CheckText(const char* from, const char* to, bool attribute)
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

    // A reference to a declared entity at `at`.
    bool CheckEntityReference(const char* at, const char* to, bool attribute, std::size_t& used)
    {
        m_At = at;
        const char* name = at + 1;
        const char* end = name;
        while (end != to && XmlText::IsNameChar(*end))
            ++end;
        if (end == name || !XmlText::IsNameStart(*name) || end == to || *end != ';')
            return Fail("an unknown or malformed reference");
        used = std::size_t(end + 1 - at);
        Entity* entity = m_Document.FindEntity(name, std::size_t(end - name));
        if (entity == nullptr)
            return m_Document.m_KeepUnknownEntities ||
                   Fail(Quoted("the entity", name, std::size_t(end - name), "is not declared")
                            .c_str());
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
            if (!CheckText(value, close, true))
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

    // Reads the start tag at m_At into the index, under `parent`; `open`
    // is false for an empty-element tag.
    bool ReadStartTag(u32 parent, u32& index, bool& open)
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

    // Reads the end tag at m_At ("</"), which closes `element`.
    bool ReadEndTag(u32 element)
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

    // Reads the root element and all it holds. The open elements are the
    // chain of parents in the index, so depth costs no stack.
    bool ReadElement()
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
                const char* lt =
                    static_cast<const char*>(std::memchr(m_At, '<', std::size_t(m_End - m_At)));
                if (lt == nullptr)
                {
                    m_At = m_End;
                    return Fail("the document ends inside an element");
                }
                if (!CheckText(m_At, lt, false))
                    return false;
                m_At = lt;
                if (m_End - m_At >= 2 && m_At[1] == '/')
                {
                    if (!ReadEndTag(open))
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

    MarkupSTL& m_Document;
    const char* m_Begin;
    const char* m_At;
    const char* m_End;
    const char* m_Start = nullptr; // after the byte order mark
    const bool m_Strict;
    bool m_ParameterReference = false;
    u64 m_Expanded = 0; // bytes the document's entity references expand to
};

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
            message = Quoted("the encoding", name, length, "is not supported");
        else if (detected != kUtf8 && declared != kUtf16LE)
            message =
                Quoted("the document is in UTF-16 but declares the encoding", name, length, "");
        else if (detected == kUtf8 && declared == kUtf16LE)
            message =
                Quoted("the document declares the encoding", name, length, "but is not in UTF-16");
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
