// The DOCTYPE of the markup document's check: the external identifier and
// the internal subset, whose general entities and attribute-list
// declarations are read and checked.
#include "base/markup/markupchecker.h"

#include "base/markup/markupencoding.h"

#include <algorithm>
#include <utility>

namespace qel
{

namespace
{

// Whether the `length` bytes at `word` are `text`.
bool Is(const char* word, std::size_t length, const char* text)
{
    return std::strlen(text) == length && std::memcmp(word, text, length) == 0;
}

} // namespace

// ---- the DOCTYPE and its internal subset -----------------------------------------

bool MarkupSTL::Checker::ReadExternalId(bool& found)
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

bool MarkupSTL::Checker::ReadDoctype()
{
    const char* name;
    u32 length;
    bool external;
    std::size_t at, valueLength;
    m_Standalone = MarkupEncoding::DeclaredValue(m_Begin, std::size_t(m_End - m_Begin),
                                                 "standalone", at, valueLength) &&
                   valueLength == 3 && std::memcmp(m_Begin + at, "yes", 3) == 0;
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

    m_Document.m_KeepUnknownEntities =
        m_Document.m_KeepUnknownEntities || ((external || m_ParameterReference) && !m_Standalone);
    // By name; the first declaration of a name binds.
    Entities& entities = m_Document.m_Entities;
    std::stable_sort(entities.begin(), entities.end(),
                     [](const Entity& a, const Entity& b) { return a.name < b.name; });
    entities.erase(std::unique(entities.begin(), entities.end(),
                               [](const Entity& a, const Entity& b) { return a.name == b.name; }),
                   entities.end());
    return TakeDeclarations();
}

bool MarkupSTL::Checker::ReadInternalSubset()
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
            m_Processing = m_Standalone;
            continue;
        }
        if (StartsWith("<!--"))
            good = ReadComment();
        else if (StartsWith("<?"))
            good = ReadInstruction();
        else if (StartsWith("<!ENTITY"))
            good = ReadEntity();
        else if (StartsWith("<!ATTLIST"))
            good = ReadAttributeList();
        else if (StartsWith("<!"))
            good = SkipDeclaration();
        else
            return Fail("a markup declaration was expected in the DOCTYPE");
        if (!good)
            return false;
    }
}

bool MarkupSTL::Checker::SkipDeclaration()
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

// ---- entities --------------------------------------------------------------------

bool MarkupSTL::Checker::ReadEntity()
{
    const u32 declared = u32(m_At - m_Begin);
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
    Entity entity{String(name, length), String(), 0, kUnchecked, declared, false, false, nullptr};
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
    if (!parameter && !predefined && m_Processing)
        m_Document.m_Entities.push_back(entity);
    return true;
}

bool MarkupSTL::Checker::ReadEntityValue(String& text)
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

bool MarkupSTL::Checker::CheckEntity(Entity& entity)
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
            e.length += written; // a character, '<' too: not markup
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

// ---- attribute-list declarations -------------------------------------------------

bool MarkupSTL::Checker::ReadAttributeList()
{
    const char* start = m_At;
    const std::size_t pending = m_Pending.size();
    m_Quiet = !m_Strict;
    const bool good = ReadAttributeDefinitions();
    m_Quiet = false;
    if (good || m_Strict)
        return good;
    m_Pending.resize(pending);
    m_At = start;
    return SkipDeclaration();
}

bool MarkupSTL::Checker::ReadAttributeDefinitions()
{
    Pending attribute{u32(m_At - m_Begin), 0, 0, 0, 0, 0, 0, false, false};
    m_At += 9;
    const char* element;
    u32 elementLength;
    if (!NeedSpace("white space was expected after ATTLIST") || !ReadName(element, elementLength))
        return false;
    attribute.element = u32(element - m_Begin);
    attribute.elementLength = elementLength;
    for (;;)
    {
        const char* before = m_At;
        SkipSpace();
        if (m_At == m_End)
            return Fail("the DOCTYPE is not closed");
        if (*m_At == '>')
        {
            ++m_At;
            return true;
        }
        if (m_At == before)
            return Fail("'>' was expected to close an attribute-list declaration");
        const char* name;
        if (!ReadName(name, attribute.nameLength) ||
            !NeedSpace("white space was expected after the attribute name") ||
            !ReadAttributeType(attribute.tokenized) ||
            !NeedSpace("white space was expected after the attribute type"))
            return false;
        attribute.name = u32(name - m_Begin);
        attribute.defaulted = true;
        if (m_At != m_End && *m_At == '#')
        {
            const char* keyword = m_At;
            for (++m_At; m_At != m_End && XmlText::IsNameChar(*m_At);)
                ++m_At;
            const std::size_t length = std::size_t(m_At - keyword);
            if (Is(keyword, length, "#REQUIRED") || Is(keyword, length, "#IMPLIED"))
                attribute.defaulted = false;
            else if (!Is(keyword, length, "#FIXED"))
            {
                m_At = keyword;
                return Fail("#REQUIRED, #IMPLIED, #FIXED or a default value was expected");
            }
            else if (!NeedSpace("white space was expected after #FIXED"))
                return false;
        }
        if (attribute.defaulted && !ReadDefaultValue(attribute))
            return false;
        if (m_Processing)
            m_Pending.push_back(attribute);
    }
}

bool MarkupSTL::Checker::ReadAttributeType(bool& tokenized)
{
    tokenized = true;
    if (m_At != m_End && *m_At == '(')
        return ReadEnumeration(false);
    const char* word = m_At;
    while (m_At != m_End && XmlText::IsNameChar(*m_At))
        ++m_At;
    const std::size_t length = std::size_t(m_At - word);
    tokenized = !Is(word, length, "CDATA");
    if (Is(word, length, "NOTATION"))
    {
        if (!NeedSpace("white space was expected after NOTATION"))
            return false;
        if (m_At == m_End || *m_At != '(')
            return Fail("'(' was expected after NOTATION");
        return ReadEnumeration(true);
    }
    for (const char* type :
         {"CDATA", "ID", "IDREF", "IDREFS", "ENTITY", "ENTITIES", "NMTOKEN", "NMTOKENS"})
        if (Is(word, length, type))
            return true;
    m_At = word;
    return Fail("an attribute type was expected");
}

bool MarkupSTL::Checker::ReadEnumeration(bool names)
{
    for (++m_At;; ++m_At)
    {
        SkipSpace();
        const char* token = m_At;
        while (m_At != m_End && XmlText::IsNameChar(*m_At))
            ++m_At;
        if (m_At == token || (names && !XmlText::IsNameStart(*token)))
        {
            m_At = token;
            return Fail(names ? "a notation name was expected" : "a name token was expected");
        }
        SkipSpace();
        if (m_At == m_End)
            return Fail("the DOCTYPE is not closed");
        if (*m_At == ')')
        {
            ++m_At;
            return true;
        }
        if (*m_At != '|')
            return Fail("'|' or ')' was expected in an enumeration");
    }
}

bool MarkupSTL::Checker::ReadDefaultValue(Pending& attribute)
{
    const char* value;
    const char* close;
    if (!ReadLiteral(value, close))
        return false;
    for (const char* at = value; at != close; ++at)
    {
        char bytes[4];
        u32 written;
        if (*at == '<')
        {
            m_At = at;
            return Fail("'<' in an attribute value");
        }
        if (*at != '&')
            continue;
        const std::size_t used =
            XmlText::DecodeReference(at, std::size_t(close - at), bytes, written);
        const char* end = used != 0 ? at + used - 1 : EntityReferenceEnd(at, close);
        if (end == nullptr)
        {
            m_At = at;
            return Fail("an unknown or malformed reference");
        }
        at = end;
    }
    attribute.value = u32(value - m_Begin);
    attribute.valueEnd = u32(close - m_Begin);
    return true;
}

bool MarkupSTL::Checker::TakeDeclarations()
{
    Declarations& declarations = m_Document.m_Declarations;
    const char* const after = m_At; // errors are placed in the declarations
    for (const Pending& p : m_Pending)
    {
        Declaration declared{String(m_Begin + p.element, p.elementLength),
                             String(m_Begin + p.name, p.nameLength),
                             String(),
                             m_Declared++,
                             p.tokenized,
                             p.defaulted};
        if (p.defaulted)
        {
            m_Quiet = !m_Strict;
            declared.defaulted = ReadDefault(p, declared.value);
            m_Quiet = false;
            if (!declared.defaulted && m_Strict)
                return false;
            if (!declared.defaulted)
                declared.value.clear();
            else if (p.tokenized)
                CollapseSpaces(declared.value);
        }
        declarations.push_back(std::move(declared));
    }
    m_Pending.clear();
    m_At = after;
    // The first declaration of an attribute binds; each element's
    // attributes stay in the order declared.
    struct Order
    {
        bool byName;
        bool operator()(const Declaration& a, const Declaration& b) const
        {
            if (const int element = a.element.compare(b.element))
                return element < 0;
            if (const int name = byName ? a.name.compare(b.name) : 0)
                return name < 0;
            return a.order < b.order;
        }
    };
    std::sort(declarations.begin(), declarations.end(), Order{true});
    declarations.erase(std::unique(declarations.begin(), declarations.end(),
                                   [](const Declaration& a, const Declaration& b)
                                   { return a.element == b.element && a.name == b.name; }),
                       declarations.end());
    std::sort(declarations.begin(), declarations.end(), Order{false});
    return true;
}

bool MarkupSTL::Checker::ReadDefault(const Pending& attribute, String& value)
{
    const char* const to = m_Begin + attribute.valueEnd;
    const char* run = m_Begin + attribute.value;
    for (const char* at = run;;)
    {
        at = static_cast<const char*>(std::memchr(at, '&', std::size_t(to - at)));
        if (at == nullptr)
            break;
        char bytes[4];
        u32 written;
        std::size_t used = XmlText::DecodeReference(at, std::size_t(to - at), bytes, written);
        if (used != 0)
        {
            at += used;
            continue;
        }
        const char* name = at + 1;
        const char* semicolon = EntityReferenceEnd(at, to); // checked when read
        const Entity* entity = m_Document.FindEntity(name, std::size_t(semicolon - name));
        if (entity != nullptr && entity->declared > attribute.declaration)
        {
            m_At = at;
            if (!m_Document.m_KeepUnknownEntities)
                return Fail(Quoted("the entity", name, std::size_t(semicolon - name),
                                   "is declared after the default value that refers to it")
                                .c_str());
            // Not declared yet where it is used: kept as text.
            m_Document.Decode(run, at, true, value);
            value.append(at, std::size_t(semicolon + 1 - at));
            at = run = semicolon + 1;
            continue;
        }
        if (!CheckEntityReference(at, to, true, used))
            return false;
        at += used;
    }
    m_Document.Decode(run, to, true, value);
    return true;
}

} // namespace qel
