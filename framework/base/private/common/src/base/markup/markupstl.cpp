#include <qel/markupstl.h>

#include <qel/fileexception.h>
#include <qel/inputfilestream.h>
#include <qel/safeoutputfilestream.h>

#include "base/markup/markupencoding.h"
#include "base/markup/markuptext.h"
#include "base/markup/xmltext.h"

#include <algorithm>
#include <cstring>

namespace qel
{

namespace
{

const u32 kTabulation = 4;

// Whether the element of an index slot has been removed.
const u32 kRemoved = 0;

typedef MarkupText::Mark Mark;

} // namespace

// ---- the document ---------------------------------------------------------------

MarkupSTL::MarkupSTL() : m_Text(new MarkupText)
{
    SetDocument("", 0);
}

MarkupSTL::MarkupSTL(const char* document) : m_Text(new MarkupText)
{
    SetDocument(document);
}

MarkupSTL::MarkupSTL(const MarkupSTL& other)
    : m_Text(new MarkupText(*other.m_Text)), m_Elements(other.m_Elements),
      m_Entities(other.m_Entities), m_Declarations(other.m_Declarations),
      m_KeepUnknownEntities(other.m_KeepUnknownEntities), m_Strict(other.m_Strict),
      m_Encoding(other.m_Encoding), m_Count(other.m_Count), m_Position(other.m_Position),
      m_Error(other.m_Error), m_ErrorLine(other.m_ErrorLine), m_ErrorColumn(other.m_ErrorColumn)
{
}

MarkupSTL& MarkupSTL::operator=(const MarkupSTL& other)
{
    if (this != &other)
    {
        MarkupSTL copy(other);
        std::swap(m_Text, copy.m_Text);
        m_Elements.swap(copy.m_Elements);
        m_Entities.swap(copy.m_Entities);
        m_Declarations.swap(copy.m_Declarations);
        m_KeepUnknownEntities = copy.m_KeepUnknownEntities;
        m_Strict = copy.m_Strict;
        m_Encoding = copy.m_Encoding;
        m_Count = copy.m_Count;
        m_Position = copy.m_Position;
        m_Error.swap(copy.m_Error);
        m_ErrorLine = copy.m_ErrorLine;
        m_ErrorColumn = copy.m_ErrorColumn;
    }
    return *this;
}

MarkupSTL::~MarkupSTL()
{
    delete m_Text;
}

bool MarkupSTL::SetDocument(const char* text)
{
    return SetDocument(text, text ? u32(std::strlen(text)) : 0);
}

bool MarkupSTL::SetDocument(const char* text, u32 length)
{
    // Into the previous document's store when it has room, so that
    // reloading touches no new memory. The text may lie in that store
    // (assign copes with the overlap) or elsewhere in the document, which
    // Release leaves alone.
    String bytes = m_Text->Release(length);
    bytes.assign(text ? text : "", length);
    return Take(bytes);
}

const MarkupSTL::String& MarkupSTL::GetDocument() const
{
    return m_Text->Whole();
}

const char* MarkupSTL::GetEncoding() const
{
    return MarkupEncoding::Name(m_Encoding);
}

bool MarkupSTL::Load(const char* path)
{
    String bytes;
    const char* failure = nullptr;
    try
    {
        InputFileStream stream(path);
        const u64 size = stream.GetSize();
        if (size >= 0xFFFFFFFFu)
            failure = "the file is too large";
        else
        {
            bytes.resize(std::size_t(size));
            bytes.resize(stream.Read(&bytes[0], u32(size)));
        }
    }
    catch (const FileException& error)
    {
        m_Error.assign("the file cannot be read: ");
        m_Error += error.GetReason();
        failure = m_Error.c_str();
    }
    if (failure == nullptr)
        return Take(bytes);
    const String message(failure);
    m_Text->Assign(String());
    Parse(message.c_str());
    m_ErrorLine = m_ErrorColumn = 0;
    return false;
}

bool MarkupSTL::Save(const char* path) const
{
    const String& text = m_Text->Whole();
    if (m_Encoding == MarkupEncoding::kUtf8)
        return WriteFile(path, text);
    String bytes;
    MarkupEncoding::FromUtf8(MarkupEncoding::Kind(m_Encoding), text.data(), text.size(), bytes);
    return WriteFile(path, bytes);
}

bool MarkupSTL::WriteFile(const char* path, const String& bytes)
{
    try
    {
        // Written beside the file and put in its place whole.
        SafeOutputFileStream stream(path);
        if (stream.Write(bytes.data(), u32(bytes.size())) != bytes.size())
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

bool MarkupSTL::Matches(u32 element, const char* name) const
{
    const Element& e = m_Elements[element];
    const char* tag = m_Text->At(e.start) + 1;
    // The first byte settles most mismatches.
    return tag[0] == name[0] && XmlText::SameName(tag, e.nameLength, name);
}

u32 MarkupSTL::NextNamed(u32 at, const char* name) const
{
    while (at != 0 && !Matches(at, name))
        at = m_Elements[at].nextSibling;
    return at;
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

// ---- reading --------------------------------------------------------------------

MarkupSTL::String MarkupSTL::TagName(u32 element) const
{
    if (element == 0)
        return String();
    const Element& e = m_Elements[element];
    return String(m_Text->At(e.start) + 1, e.nameLength);
}

void MarkupSTL::Decode(const char* from, const char* to, bool attribute, String& out) const
{
    // Entities' replacement texts are read on a stack of their own; only
    // the document's text has markup and line ends to normalise.
    struct Frame
    {
        const char* at;
        const char* end;
    };
    // Most texts hold nothing to decode: their bytes up to the first that
    // needs a look are appended as they are.
    const unsigned decoded = attribute ? XmlText::kDecodedInValue : XmlText::kDecodedInData;
    const char* plain = from;
    while (plain != to && !(XmlText::ClassOf(*plain) & decoded))
        ++plain;
    out.append(from, std::size_t(plain - from));
    if (plain == to)
        return;
    std::vector<Frame, GeneralAllocator<Frame>> entities;
    const char* at = plain;
    const char* end = to;
    for (;;)
    {
        if (at == end)
        {
            if (entities.empty())
                return;
            at = entities.back().at;
            end = entities.back().end;
            entities.pop_back();
            continue;
        }
        const bool document = entities.empty();
        const char c = *at;
        if (c == '&')
        {
            char bytes[4];
            u32 written = 0;
            const std::size_t used =
                XmlText::DecodeReference(at, std::size_t(end - at), bytes, written);
            if (used != 0)
            {
                out.append(bytes, written);
                at += used;
                continue;
            }
            const char* semicolon =
                static_cast<const char*>(std::memchr(at, ';', std::size_t(end - at)));
            const Entity* entity =
                semicolon ? FindEntity(at + 1, std::size_t(semicolon - at - 1)) : nullptr;
            if (entity == nullptr || entity->external)
            {
                // Kept as text: the check let it through.
                const char* past = semicolon ? semicolon + 1 : at + 1;
                out.append(at, std::size_t(past - at));
                at = past;
                continue;
            }
            entities.push_back(Frame{semicolon + 1, end});
            at = entity->text.data();
            end = at + entity->text.size();
        }
        else if (c == '\r' && document)
        {
            out += attribute ? ' ' : '\n';
            at += at + 1 < end && at[1] == '\n' ? 2 : 1;
        }
        else if (attribute && (c == '\n' || c == '\t' || c == '\r'))
        {
            out += ' ';
            ++at;
        }
        else if (c == '<' && document)
        {
            if (end - at >= 9 && std::memcmp(at, "<![CDATA[", 9) == 0)
            {
                const char* close = at + 9;
                while (std::memcmp(close, "]]>", 3) != 0)
                    ++close;
                for (const char* cdata = at + 9; cdata != close; ++cdata)
                {
                    if (*cdata != '\r')
                        out += *cdata;
                    else if (cdata + 1 == close || cdata[1] != '\n')
                        out += '\n';
                }
                at = close + 3;
            }
            else
            {
                // A comment or a processing instruction: checked at load.
                const bool comment = end - at >= 4 && std::memcmp(at, "<!--", 4) == 0;
                const char* terminator = comment ? "-->" : "?>";
                at += comment ? 4 : 2;
                while (std::memcmp(at, terminator, comment ? 3 : 2) != 0)
                    ++at;
                at += comment ? 3 : 2;
            }
        }
        else
        {
            const char* run = at;
            while (run < end && *run != '&' && *run != '\r' && *run != '<' &&
                   !(attribute && (*run == '\n' || *run == '\t')))
                ++run;
            if (run == at)
                ++run; // '<' or CR in an entity's text
            out.append(at, std::size_t(run - at));
            at = run;
        }
    }
}

MarkupSTL::String MarkupSTL::Data(u32 element) const
{
    String data;
    if (element == 0 || m_Elements[element].firstChild != 0)
        return data;
    const Element& e = m_Elements[element];
    if (e.end == e.open)
        return data;
    const Mark from{e.open, true}, to{e.close, false};
    const char* text;
    u32 length;
    if (m_Text->Span(from, to, text, length))
        Decode(text, text + length, false, data);
    else
    {
        String gathered;
        m_Text->Append(from, to, gathered);
        Decode(gathered.data(), gathered.data() + gathered.size(), false, data);
    }
    return data;
}

bool MarkupSTL::NextAttribute(const char* tag, u32& at, Span& name, Span& value)
{
    while (XmlText::IsSpace(tag[at]))
        ++at;
    if (!XmlText::IsNameStart(tag[at]))
        return false; // '>' or "/>"
    name.start = at;
    while (XmlText::IsNameChar(tag[at]))
        ++at;
    name.end = at;
    while (tag[at] != '"' && tag[at] != '\'')
        ++at;
    const char quote = tag[at++];
    value.start = at;
    while (tag[at] != quote)
        ++at;
    value.end = at++;
    return true;
}

bool MarkupSTL::FindAttribute(u32 element, const char* name, Span& value) const
{
    if (element == 0)
        return false;
    const Element& e = m_Elements[element];
    const char* tag = m_Text->At(e.start);
    Span found;
    for (u32 at = 1 + e.nameLength; NextAttribute(tag, at, found, value);)
        if (XmlText::SameName(tag + found.start, found.end - found.start, name))
            return true;
    return false;
}

void MarkupSTL::DeclarationsOf(u32 element, const Declaration*& first,
                               const Declaration*& last) const
{
    first = last = m_Declarations.data();
    if (element == 0 || m_Declarations.empty())
        return;
    const Element& e = m_Elements[element];
    const char* name = m_Text->At(e.start) + 1;
    const std::size_t length = e.nameLength;
    const Declaration* const end = m_Declarations.data() + m_Declarations.size();
    first = std::lower_bound(m_Declarations.data(), end, 0,
                             [name, length](const Declaration& d, int)
                             { return d.element.compare(0, d.element.size(), name, length) < 0; });
    for (last = first; last != end && last->element.size() == length &&
                       std::memcmp(last->element.data(), name, length) == 0;)
        ++last;
}

const MarkupSTL::Declaration* MarkupSTL::FindDeclaration(u32 element, const char* name) const
{
    const Declaration* first;
    const Declaration* last;
    DeclarationsOf(element, first, last);
    for (; first != last; ++first)
        if (first->name == name)
            return first;
    return nullptr;
}

void MarkupSTL::CollapseSpaces(String& value)
{
    std::size_t kept = 0;
    for (const char c : value)
        if (c != ' ' || (kept != 0 && value[kept - 1] != ' '))
            value[kept++] = c;
    if (kept != 0 && value[kept - 1] == ' ')
        --kept;
    value.resize(kept);
}

bool MarkupSTL::SpecifiedAttribute(u32 element, const char* name, String& value) const
{
    Span found;
    if (!FindAttribute(element, name, found))
        return false;
    const char* tag = m_Text->At(m_Elements[element].start);
    Decode(tag + found.start, tag + found.end, true, value);
    return true;
}

MarkupSTL::String MarkupSTL::Attribute(u32 element, const char* name) const
{
    String value;
    if (m_Declarations.empty())
    {
        SpecifiedAttribute(element, name, value);
        return value;
    }
    const bool specified = SpecifiedAttribute(element, name, value);
    if (const Declaration* declared = FindDeclaration(element, name))
    {
        if (!specified && declared->defaulted)
            value = declared->value;
        else if (specified && declared->tokenized)
            CollapseSpaces(value);
    }
    return value;
}

bool MarkupSTL::HasAttribute(const char* name) const
{
    Span value;
    if (FindAttribute(m_Position.main, name, value))
        return true;
    const Declaration* declared = FindDeclaration(m_Position.main, name);
    return declared != nullptr && declared->defaulted;
}

MarkupSTL::String MarkupSTL::GetAttributeName(u32 index) const
{
    if (m_Position.main == 0)
        return String();
    const Element& e = m_Elements[m_Position.main];
    const char* tag = m_Text->At(e.start);
    Span name, value;
    u32 at = 1 + e.nameLength;
    u32 n = 0;
    for (; NextAttribute(tag, at, name, value); ++n)
        if (n == index)
            return String(tag + name.start, name.end - name.start);
    // Then those the element takes from their defaults.
    const Declaration* first;
    const Declaration* last;
    DeclarationsOf(m_Position.main, first, last);
    for (; first != last; ++first)
        if (first->defaulted && !FindAttribute(m_Position.main, first->name.c_str(), value) &&
            n++ == index)
            return first->name;
    return String();
}

// ---- editing --------------------------------------------------------------------

void MarkupSTL::CompactIfWasteful()
{
    if (!m_Text->IsWasteful())
        return;
    m_Text->Compact(
        [this](const MarkupText::Renamer& rename)
        {
            for (std::size_t i = 1; i < m_Elements.size(); ++i)
            {
                Element& e = m_Elements[i];
                if (e.nameLength == kRemoved)
                    continue;
                rename(e.start);
                rename(e.open);
                rename(e.close);
                rename(e.end);
            }
        });
}

u32 MarkupSTL::Depth(u32 element) const
{
    u32 depth = 0;
    for (; element != 0; element = m_Elements[element].parent)
        ++depth;
    return depth;
}

void MarkupSTL::RecallPiece(u32 element) const
{
    if (element < m_TagPieces.size())
        m_Text->Recall(m_TagPieces[element]);
}

void MarkupSTL::KeepPiece(u32 element)
{
    // Grown with the index's room, not one element at a time.
    if (element >= m_TagPieces.size())
        m_TagPieces.resize(m_Elements.capacity(), u32(MarkupText::kNone));
    m_TagPieces[element] = m_Text->PieceOf(m_Elements[element].start);
}

void MarkupSTL::Retag(u32 element, const String& tag)
{
    RecallPiece(element);
    Element& e = m_Elements[element];
    const bool empty = e.end == e.open;
    const u32 stored =
        m_Text->Replace(Mark{e.start, false}, Mark{e.open, true}, tag.data(), u32(tag.size()));
    e.start = stored;
    e.open = stored + u32(tag.size()) - 1;
    if (empty)
        e.close = e.end = e.open;
    KeepPiece(element);
}

void MarkupSTL::Open(u32 element)
{
    Element& e = m_Elements[element];
    if (e.end != e.open)
        return;
    RecallPiece(element);
    // "<a .../>" becomes "<a ...></a>".
    const char* tag = m_Text->At(e.start);
    const u32 slash = e.open - 1 - e.start;
    String text(tag, slash);
    text += "></";
    text.append(tag + 1, e.nameLength);
    text += '>';
    const u32 stored =
        m_Text->Replace(Mark{e.start, false}, Mark{e.end, true}, text.data(), u32(text.size()));
    e.start = stored;
    e.open = stored + slash;
    e.close = e.open + 1;
    e.end = stored + u32(text.size()) - 1;
    KeepPiece(element);
}
u32 MarkupSTL::AddUnder(u32 parent, u32 before, const char* name, const char* data)
{
    const std::size_t nameLength = name ? std::strlen(name) : 0;
    if (!IsWellFormed() || !XmlText::IsName(name, nameLength))
        return 0;
    if (parent == 0 && m_Elements[0].firstChild != 0)
        return 0; // one root only
    CompactIfWasteful();
    // Where it goes, and the line break and indentation around it.
    Mark at{MarkupText::kNone, false};
    u32 spacesBefore = 0, spacesAfter = 0; // the indentation after each line break
    bool breakBefore = false, breakAfter = false;
    if (parent == 0)
    {
        const u32 last = m_Text->Last();
        breakBefore = last != MarkupText::kNone && *m_Text->At(last) != '\n';
        breakAfter = true;
    }
    else
    {
        Open(parent);
        const Element& up = m_Elements[parent];
        const u32 indent = Depth(parent) * kTabulation;
        RecallPiece(parent);
        if (before != 0)
        {
            RecallPiece(before);
            at = Mark{m_Elements[before].start, false};
            breakAfter = true, spacesAfter = indent;
        }
        else if (up.lastChild != 0)
        {
            RecallPiece(up.lastChild);
            at = Mark{m_Elements[up.lastChild].end, true};
            breakBefore = true, spacesBefore = indent;
        }
        else if (m_Text->Next(up.open) == up.close)
        {
            at = Mark{up.open, true};
            breakBefore = true, spacesBefore = indent;
            breakAfter = true, spacesAfter = indent - kTabulation;
        }
        else
            at = Mark{up.close, false}; // after the element's text
    }
    String& text = m_Scratch; // its room kept from edit to edit
    text.clear();
    if (breakBefore)
        text += '\n';
    text.append(spacesBefore, ' ');
    const u32 lead = u32(text.size()); // characters before the element's '<'
    text += '<';
    text.append(name, nameLength);
    u32 contentLength = 0;
    if (data != nullptr)
    {
        text += '>';
        const std::size_t open = text.size();
        XmlText::Escape(data, std::strlen(data), false,
                        [&text](const char* piece, std::size_t size) { text.append(piece, size); });
        contentLength = u32(text.size() - open);
        text += "</";
        text.append(name, nameLength);
        text += '>';
    }
    else
        text += "/>";
    if (breakAfter)
        text += '\n';
    text.append(spacesAfter, ' ');
    const u32 stored = m_Text->Replace(at, at, text.data(), u32(text.size()));

    Element made{};
    made.start = stored + lead;
    made.nameLength = u32(nameLength);
    if (data != nullptr)
    {
        made.open = made.start + 1 + u32(nameLength);
        made.close = made.open + 1 + contentLength;
        made.end = made.close + 2 + u32(nameLength);
    }
    else
        made.open = made.close = made.end = made.start + u32(nameLength) + 2;
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
    KeepPiece(index);
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
    // Everything under the element leaves the index, walked in document
    // order without a stack; its own links go last.
    for (u32 at = m_Elements[element].firstChild; at != 0;)
    {
        Element& e = m_Elements[at];
        e.nameLength = kRemoved;
        --m_Count;
        if (e.firstChild != 0)
        {
            at = e.firstChild;
            continue;
        }
        while (at != element && m_Elements[at].nextSibling == 0)
            at = m_Elements[at].parent;
        at = at == element ? 0 : m_Elements[at].nextSibling;
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
    CompactIfWasteful();
    const Element& e = m_Elements[element];
    const u32 parent = e.parent;
    Mark from{e.start, false}, to{e.end, true};
    // The element goes with the line break and indentation before it, when
    // they stand between tags (not at the end of text it follows).
    u32 at = m_Text->Previous(e.start);
    while (at != MarkupText::kNone && (*m_Text->At(at) == ' ' || *m_Text->At(at) == '\t'))
        at = m_Text->Previous(at);
    if (at != MarkupText::kNone && *m_Text->At(at) == '\n')
    {
        at = m_Text->Previous(at);
        if (at != MarkupText::kNone && *m_Text->At(at) == '\r')
            at = m_Text->Previous(at);
        if (at != MarkupText::kNone && *m_Text->At(at) == '>')
            from = Mark{at, true};
    }
    // The last child of an element leaves no white space behind as data.
    const Element& up = m_Elements[parent];
    if (parent != 0 && up.firstChild == element && up.lastChild == element)
    {
        String around;
        m_Text->Append(Mark{up.open, true}, from, around);
        m_Text->Append(to, Mark{up.close, false}, around);
        bool blank = true;
        for (char c : around)
            blank = blank && XmlText::IsSpace(c);
        if (blank)
        {
            from = Mark{up.open, true};
            to = Mark{up.close, false};
        }
    }
    Unlink(element);
    m_Text->Replace(from, to, nullptr, 0);
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
    CompactIfWasteful();
    Open(element);
    for (u32 child = m_Elements[element].firstChild; child != 0;)
    {
        const u32 next = m_Elements[child].nextSibling;
        Unlink(child);
        child = next;
    }
    String& text = m_Scratch; // its room kept from edit to edit
    text.clear();
    if (data != nullptr)
        XmlText::Escape(data, std::strlen(data), false,
                        [&text](const char* piece, std::size_t size) { text.append(piece, size); });
    const Element& e = m_Elements[element];
    m_Text->Replace(Mark{e.open, true}, Mark{e.close, false}, text.data(), u32(text.size()));
    return true;
}

bool MarkupSTL::SetAttribute(u32 element, const char* name, const char* value)
{
    const std::size_t nameLength = name ? std::strlen(name) : 0;
    if (element == 0 || !XmlText::IsName(name, nameLength))
        return false;
    CompactIfWasteful();
    // The start tag is written anew, so that it stays one run of text.
    const Element& e = m_Elements[element];
    const char* tag = m_Text->At(e.start);
    const std::size_t length = e.open + 1 - e.start;
    String& retagged = m_Scratch;
    retagged.clear();
    auto escape = [&retagged](const char* piece, std::size_t size)
    { retagged.append(piece, size); };
    Span found;
    if (FindAttribute(element, name, found))
    {
        // Replaced between its quotes; a value in single quotes gets double
        // ones, which the escaping is for.
        retagged.assign(tag, found.start - 1);
        retagged += '"';
        XmlText::Escape(value ? value : "", value ? std::strlen(value) : 0, true, escape);
        retagged += '"';
        retagged.append(tag + found.end + 1, length - found.end - 1);
        // The value it already has, as it would be written: nothing to edit.
        if (retagged.size() == length && std::memcmp(retagged.data(), tag, length) == 0)
            return true;
    }
    else
    {
        std::size_t close = length - 1; // the '>'
        if (e.end == e.open)
            --close; // the '/'
        while (XmlText::IsSpace(tag[close - 1]))
            --close;
        retagged.assign(tag, close);
        retagged += ' ';
        retagged.append(name, nameLength);
        retagged += "=\"";
        XmlText::Escape(value ? value : "", value ? std::strlen(value) : 0, true, escape);
        retagged += '"';
        retagged.append(tag + close, length - close);
    }
    Retag(element, retagged);
    return true;
}

} // namespace qel
