// The DOCTYPE of the markup document's check: the external identifier and
// the internal subset, whose general entities are read and checked.
#include "base/markup/markupchecker.h"

#include "base/markup/markupencoding.h"

#include <algorithm>

namespace qel
{

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
                               [](const Entity& a, const Entity& b) { return a.name == b.name; }),
                   entities.end());
    return true;
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

bool MarkupSTL::Checker::ReadEntity()
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

} // namespace qel
