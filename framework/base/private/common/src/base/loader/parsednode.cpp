#include <qel/parsednode.h>

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/outputfilestream.h>
#include <qel/outputstream.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace qel
{

namespace
{

void Put(OutputStream& out, const char* text)
{
    if (text)
        out.Write(text, u32(std::strlen(text)));
}

// Deeper lines keep this many tabs.
const u32 kDeepestIndent = 64;

struct Tabs
{
    char text[kDeepestIndent];
};

constexpr Tabs MakeTabs()
{
    Tabs tabs{};
    for (char& tab : tabs.text)
        tab = '\t';
    return tabs;
}

constexpr Tabs kTabs = MakeTabs();

void Indent(OutputStream& out, u32 indent)
{
    out.Write(kTabs.text, indent < kDeepestIndent ? indent : kDeepestIndent);
}

} // namespace

// ---- nodes -------------------------------------------------------------------

ParsedNode::~ParsedNode() = default;

void ParsedNode::Destroy(ParsedNode* node)
{
    if (node != nullptr && node->m_InFile)
        node->~ParsedNode();
    else
        delete node;
}

ParsedRoot* ParsedNode::GetRoot()
{
    ParsedNode* node = this;
    while (node->m_Parent)
        node = node->m_Parent;
    return node->m_Root ? static_cast<ParsedRoot*>(node) : nullptr;
}

void ParsedNode::PrintOut(const char* path)
{
    OutputFileStream out(path);
    Print(out, 0);
}

void ParsedComment::Print(OutputStream& out, u32 indent)
{
    Indent(out, indent);
    // ";*" would open a batch comment: a carriage return between them is
    // dropped again when the line is read.
    const char* text = GetIdentifier();
    out.Write(";\r", text && *text == '*' ? 2 : 1);
    Put(out, text);
    out.Write("\r\n", 2);
}

// ---- entries -------------------------------------------------------------------

void ParsedEntry::Print(OutputStream& out, u32 indent)
{
    Indent(out, indent);
    Put(out, GetIdentifier());
    if (!m_Parameters.empty())
    {
        out.Write("(", 1);
        for (std::size_t i = 0; i < m_Parameters.size(); ++i)
        {
            if (i != 0)
                out.Write(", ", 2);
            // A double quote is found only in a word, which reads back
            // without its quotes.
            const char* parameter = m_Parameters[i].Get();
            const bool quoted = parameter && !std::strchr(parameter, '"');
            if (quoted)
                out.Write("\"", 1);
            Put(out, parameter);
            if (quoted)
                out.Write("\"", 1);
        }
        out.Write(")", 1);
    }
    out.Write("\r\n", 2);
}

void ParsedEntry::AddParameter(const char* parameter)
{
    m_Parameters.emplace_back(parameter);
}

void ParsedEntry::AddParameter(const char* parameter, u32 index)
{
    if (index <= m_Parameters.size())
        m_Parameters.insert(m_Parameters.begin() + index, ParsedString(parameter));
}

void ParsedEntry::ReleaseParameter(u32 index)
{
    if (index < m_Parameters.size())
        m_Parameters.erase(m_Parameters.begin() + index);
}

// ---- roots ---------------------------------------------------------------------

ParsedRoot::~ParsedRoot()
{
    ReleaseChildren();
}

void ParsedRoot::Print(OutputStream& out, u32 indent)
{
    // The roots being printed, each with its indent, its children's and
    // its next child, on a stack of our own rather than the call stack.
    struct Level
    {
        ParsedRoot* root;
        u32 indent;
        u32 inner;
        u32 next;
    };
    InlineVector<Level, 16> levels;
    levels.emplace_back(Level{this, indent, PrintHead(out, indent), 0});
    for (;;)
    {
        Level& level = levels.back();
        if (level.next == level.root->m_Children.size())
        {
            level.root->PrintTail(out, level.indent);
            levels.pop_back();
            if (levels.empty())
                return;
            continue;
        }
        ParsedNode* child = level.root->m_Children[level.next++];
        if (!child->m_Root)
        {
            child->Print(out, level.inner);
            continue;
        }
        ParsedRoot* root = static_cast<ParsedRoot*>(child);
        const u32 at = level.inner; // `level` moves when the stack grows
        levels.emplace_back(Level{root, at, root->PrintHead(out, at), 0});
    }
}

u32 ParsedRoot::PrintHead(OutputStream&, u32 indent)
{
    return indent + 1;
}

void ParsedRoot::PrintTail(OutputStream&, u32) {}

void ParsedRoot::AddChild(ParsedNode* node)
{
    AddChild(node, u32(m_Children.size()));
}

void ParsedRoot::AddChild(ParsedNode* node, u32 index)
{
    if (index > m_Children.size())
        return;
    try
    {
        m_Children.insert(m_Children.begin() + index, node);
    }
    catch (...)
    {
        Destroy(node);
        throw;
    }
    node->m_Parent = this;
}

void ParsedRoot::ReleaseChild(u32 index)
{
    if (index >= m_Children.size())
        return;
    ParsedNode* child = m_Children[index];
    m_Children.erase(m_Children.begin() + index);
    Destroy(child);
}

void ParsedRoot::ReleaseChild(ParsedNode* node)
{
    const auto found = std::find(m_Children.begin(), m_Children.end(), node);
    if (found != m_Children.end())
        ReleaseChild(u32(found - m_Children.begin()));
}

void ParsedRoot::ReleaseChildren()
{
    // Bottom up, last child first, without recursion: a child root that
    // still holds children is entered, and left through its parent once
    // they are gone, so that every node is destroyed holding none.
    ParsedRoot* at = this;
    for (;;)
    {
        if (at->m_Children.empty())
        {
            if (at == this)
                return;
            at = at->m_Parent;
            continue;
        }
        ParsedNode* last = at->m_Children.back();
        if (last->m_Root && !static_cast<ParsedRoot*>(last)->m_Children.empty())
        {
            at = static_cast<ParsedRoot*>(last);
            continue;
        }
        at->m_Children.pop_back();
        Destroy(last);
    }
}

ParsedRoot* ParsedRoot::FindChild(const char* path)
{
    ParsedRoot* root = this;
    for (const char* step = path;;)
    {
        const char* end = std::strchr(step, '^');
        const std::size_t length = end ? std::size_t(end - step) : std::strlen(step);
        const char* colon = static_cast<const char*>(std::memchr(step, ':', length));
        const std::size_t idLength = colon ? std::size_t(colon - step) : length;
        const char* name = colon ? colon + 1 : nullptr;
        const std::size_t nameLength = colon ? length - idLength - 1 : 0;

        ParsedRoot* match = nullptr;
        for (ParsedNode* child : root->m_Children)
        {
            if (child->GetType() != SectionType)
                continue;
            const char* id = child->GetIdentifier();
            if (!id || std::strncmp(id, step, idLength) != 0 || std::strlen(id) < idLength)
                continue;
            if (name && nameLength != 0)
            {
                const ParsedEntry* entry = static_cast<ParsedSection*>(child)->GetName();
                const char* text = entry ? entry->GetIdentifier() : nullptr;
                if (!text || !*text || std::strncmp(text, name, nameLength) != 0 ||
                    std::strlen(text) < nameLength)
                    continue;
            }
            match = static_cast<ParsedRoot*>(child);
            break;
        }
        if (!match || !end)
            return match;
        root = match;
        step = end + 1;
    }
}

// ---- sections and files --------------------------------------------------------

ParsedSection::~ParsedSection()
{
    Destroy(m_Name);
}

void ParsedSection::SetName(ParsedEntry* name)
{
    if (name == m_Name)
        return;
    Destroy(m_Name);
    m_Name = name;
    if (name)
        name->m_Parent = this;
}

u32 ParsedSection::PrintHead(OutputStream& out, u32 indent)
{
    Indent(out, indent);
    out.Write("{", 1);
    Put(out, GetIdentifier());
    if (m_Name)
    {
        out.Write(":", 1);
        m_Name->Print(out, 0);
    }
    else
    {
        out.Write("\r\n", 2);
    }
    return indent + 1;
}

void ParsedSection::PrintTail(OutputStream& out, u32 indent)
{
    Indent(out, indent);
    out.Write("}\r\n", 3);
}

u32 ParsedFile::PrintHead(OutputStream&, u32 indent)
{
    return indent;
}

// ---- the file's node memory ---------------------------------------------------

struct ParsedFile::Chunk
{
    Chunk* next;
    u32 size; // bytes, this header included
};

namespace
{

// Chunks double from 4 KB up to 4 MB: a small file takes a block or two, a
// big one a block per 4 MB (each a metapage of its own, large enough for
// huge pages).
const u32 kFirstChunk = 4096;
const u32 kLargestChunk = 4u << 20;

} // namespace

ParsedFile::~ParsedFile()
{
    // The nodes first: their destructors read the chunks.
    ReleaseChildren();
    while (Chunk* chunk = m_Chunks)
    {
        m_Chunks = chunk->next;
        Mem::GetGeneralAlloc()->Free(chunk);
    }
}

void* ParsedFile::AllocateInNewChunk(u32 size, u32 alignment)
{
    u32 bytes = m_Chunks ? m_Chunks->size : kFirstChunk / 2;
    if (bytes < kLargestChunk)
        bytes *= 2;
    while (bytes < sizeof(Chunk) + alignment + size)
        bytes *= 2;
    void* made = Mem::GetGeneralAlloc()->Malloc(bytes);
    if (made == nullptr)
        return nullptr; // reported by the allocator
    m_Chunks = new (made) Chunk{m_Chunks, bytes};
    m_Free = static_cast<char*>(made) + sizeof(Chunk);
    m_FreeEnd = static_cast<char*>(made) + bytes;
    return Allocate(size, alignment);
}

} // namespace qel
