#include <qel/parsednode.h>

#include <qel/allocator.h>
#include <qel/generalallocator.h>
#include <qel/inlinevector.h>
#include <qel/mem.h>
#include <qel/outputfilestream.h>
#include <qel/outputstream.h>

#include "base/loader/parsedlinks.h"
#include "base/loader/parsedrecord.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <new>

namespace qel
{

typedef ParsedStringPool::Record Record;

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

const char* TextOf(const Record* record)
{
    return record ? record->Text() : nullptr;
}

void Release(Record* record)
{
    if (record)
        DropRecord(record);
}

} // namespace

// ---- far links -----------------------------------------------------------------

namespace parsedlinks
{

std::intptr_t g_FarBits = 3;

namespace
{

typedef std::map<const u32*, const void*, std::less<const u32*>,
                 GeneralAllocator<std::pair<const u32* const, const void*>>>
    FarTable;

// Never destroyed: nodes in static storage may die after it would be.
FarTable& Table()
{
    static FarTable* table = new FarTable;
    return *table;
}

} // namespace

const void* FarTarget(const u32* link)
{
    const auto found = Table().find(link);
    return found != Table().end() ? found->second : nullptr;
}

void SetFar(const u32* link, const void* target)
{
    Table()[link] = target;
}

void ForgetFar(const u32* first, const u32* end)
{
    FarTable& table = Table();
    table.erase(table.lower_bound(first), table.lower_bound(end));
}

void MakeEveryLinkFar(bool every)
{
    g_FarBits = every ? ~std::intptr_t(0) : 3;
}

u32 CountFarLinks()
{
    return u32(Table().size());
}

} // namespace parsedlinks

void ParsedLinks::LinkFar(ParsedNode& holder, u32& link, const void* target)
{
    parsedlinks::SetFar(&link, target);
    link = parsedlinks::kFar;
    holder.m_Word |= ParsedNode::Far;
}

// ---- items ---------------------------------------------------------------------

namespace
{

typedef ParsedLinks::List List;

List* NewList(u32 capacity)
{
    const std::size_t bytes = sizeof(List) + (capacity - 1) * sizeof(void*);
    List* list = reinterpret_cast<List*>(GeneralAllocator<char>().allocate(bytes));
    list->size = 0;
    list->capacity = capacity;
    list->name = nullptr;
    return list;
}

void DeleteList(List* list)
{
    GeneralAllocator<char>().deallocate(reinterpret_cast<char*>(list), 0);
}

} // namespace

List* ParsedLinks::Room(ParsedNode& node, u32& first, u32 extra, bool exact)
{
    List* list = nullptr;
    u32 size;
    if (node.m_Word & ParsedNode::Listed)
    {
        list = Follow<List>(node, first);
        size = list ? list->size : 0;
        if (list && list->capacity - size >= extra)
            return list;
    }
    else
    {
        size = node.m_Word >> ParsedNode::CountShift;
    }
    u32 capacity = size + extra;
    if (!exact)
        capacity = std::max<u32>(capacity, std::max<u32>(4, list ? 2 * list->capacity : 2 * size));
    List* grown = NewList(capacity);
    grown->size = size;
    if (list)
    {
        grown->name = list->name;
        std::copy(list->item, list->item + size, grown->item);
        DeleteList(list);
    }
    else
    {
        const u32* links = Links(node, first);
        for (u32 i = 0; i < size; ++i)
            grown->item[i] = Follow<void>(node, links[i]);
        // The room stays in the count, where a listed node has no items.
        const u32 room = Capacity(node, first);
        ForgetFar(node, links, links + room);
        node.m_Word = (node.m_Word & (ParsedNode::TypeBits | ParsedNode::InFile | ParsedNode::Root |
                                      ParsedNode::Far | ParsedNode::NamedAfter)) |
                      ParsedNode::Listed | room << ParsedNode::CountShift;
        Unlink(first);
    }
    Link(node, first, grown);
    return grown;
}

void ParsedLinks::Insert(ParsedNode& node, u32& first, u32 index, void* item)
{
    List* list = Room(node, first, 1, false);
    std::move_backward(list->item + index, list->item + list->size, list->item + list->size + 1);
    list->item[index] = item;
    ++list->size;
}

void* ParsedLinks::Remove(ParsedNode& node, u32& first, u32 index)
{
    List* list = Room(node, first, 0, false);
    void* item = list->item[index];
    std::move(list->item + index + 1, list->item + list->size, list->item + index);
    --list->size;
    return item;
}

ParsedEntry* ParsedLinks::Name(const ParsedRoot& section)
{
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(&section);
    if (section.m_Word & ParsedNode::NamedAfter)
        return reinterpret_cast<ParsedEntry*>(at + Bytes(section));
    if (!(section.m_Word & ParsedNode::Listed))
        return nullptr;
    const List* list = Follow<List>(section, section.m_Items);
    return list ? static_cast<ParsedEntry*>(list->name) : nullptr;
}

ParsedEntry* ParsedLinks::SwapName(ParsedRoot& section, ParsedEntry* name)
{
    ParsedEntry* held = Name(section);
    if (name != nullptr)
        Room(section, section.m_Items, 0, false)->name = name;
    else if (section.m_Word & ParsedNode::Listed)
        if (List* list = Follow<List>(section, section.m_Items))
            list->name = nullptr;
    section.m_Word &= ~u32(ParsedNode::NamedAfter);
    return held;
}

void ParsedLinks::FreeList(ParsedNode& node, u32& first)
{
    if (!(node.m_Word & ParsedNode::Listed))
        return;
    List* list = Follow<List>(node, first);
    Unlink(first);
    if (list)
        DeleteList(list);
}

void ParsedLinks::MakeList(ParsedNode& node, u32& first, void* const* items, u32 count)
{
    List* list = Room(node, first, count, true);
    std::copy(items, items + count, list->item + list->size);
    list->size += count;
}

// ---- nodes -------------------------------------------------------------------

ParsedNode::~ParsedNode()
{
    Release(ParsedLinks::Follow<Record>(*this, m_Identifier));
    ParsedLinks::ForgetFar(*this, &m_Identifier, &m_Word);
}

void ParsedNode::Destroy(ParsedNode* node)
{
    if (node == nullptr || !(node->m_Word & InFile))
    {
        delete node;
        return;
    }
    const u32 bytes = ParsedLinks::Bytes(*node);
    node->~ParsedNode();
    ParsedLinks::Bury(node, bytes);
}

const char* ParsedNode::GetIdentifier() const
{
    return TextOf(ParsedLinks::Follow<Record>(*this, m_Identifier));
}

void ParsedNode::SetIdentifier(const char* identifier)
{
    // The new text first: it may be the one held.
    Record* held = ParsedLinks::Follow<Record>(*this, m_Identifier);
    ParsedLinks::Link(*this, m_Identifier,
                      identifier ? ParsedStringPool::CreateRecord(identifier) : nullptr);
    Release(held);
}

ParsedRoot* ParsedNode::GetParent() const
{
    return ParsedLinks::Follow<ParsedRoot>(*this, m_Parent);
}

ParsedRoot* ParsedNode::GetRoot()
{
    ParsedNode* node = this;
    while (ParsedNode* parent = node->GetParent())
        node = parent;
    return node->m_Word & Root ? static_cast<ParsedRoot*>(node) : nullptr;
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

ParsedEntry::~ParsedEntry()
{
    if (m_Word & Listed)
    {
        if (List* list = ParsedLinks::Follow<List>(*this, m_Items))
            for (u32 i = 0; i < list->size; ++i)
                Release(static_cast<Record*>(list->item[i]));
        ParsedLinks::FreeList(*this, m_Items);
        return;
    }
    const u32 count = m_Word >> CountShift;
    const u32* links = ParsedLinks::Links(m_Items);
    for (u32 i = 0; i < count; ++i)
        Release(ParsedLinks::Follow<Record>(*this, links[i]));
    ParsedLinks::ForgetFar(*this, links, links + std::max<u32>(count, 1));
}

u32 ParsedEntry::GetParameterCount() const
{
    return ParsedLinks::Count(*this, m_Items);
}

const char* ParsedEntry::GetParameter(u32 index) const
{
    if (index >= GetParameterCount())
        return nullptr;
    return TextOf(static_cast<const Record*>(ParsedLinks::Get(*this, m_Items, index)));
}

void ParsedEntry::Print(OutputStream& out, u32 indent)
{
    Indent(out, indent);
    Put(out, GetIdentifier());
    const u32 count = GetParameterCount();
    if (count != 0)
    {
        out.Write("(", 1);
        for (u32 i = 0; i < count; ++i)
        {
            if (i != 0)
                out.Write(", ", 2);
            // A double quote is found only in a word, which reads back
            // without its quotes.
            const char* parameter = GetParameter(i);
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
    AddParameter(parameter, GetParameterCount());
}

void ParsedEntry::AddParameter(const char* parameter, u32 index)
{
    if (index > GetParameterCount())
        return;
    Record* record = parameter ? ParsedStringPool::CreateRecord(parameter) : nullptr;
    try
    {
        ParsedLinks::Insert(*this, m_Items, index, record);
    }
    catch (...)
    {
        Release(record);
        throw;
    }
}

void ParsedEntry::ReleaseParameter(u32 index)
{
    if (index < GetParameterCount())
        Release(static_cast<Record*>(ParsedLinks::Remove(*this, m_Items, index)));
}

void ParsedEntry::ReleaseParameters()
{
    const u32 count = GetParameterCount();
    for (u32 i = count; i > 0; --i)
        ReleaseParameter(i - 1);
}

// ---- roots ---------------------------------------------------------------------

ParsedRoot::~ParsedRoot()
{
    ReleaseChildren();
    ParsedLinks::FreeList(*this, m_Items);
    ParsedLinks::ForgetFar(*this, &m_Items, &m_Items + 1);
}

u32 ParsedRoot::GetChildCount() const
{
    return ParsedLinks::Count(*this, m_Items);
}

ParsedNode* ParsedRoot::GetChild(u32 index) const
{
    if (index >= GetChildCount())
        return nullptr;
    return static_cast<ParsedNode*>(ParsedLinks::Get(*this, m_Items, index));
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
        if (level.next == level.root->GetChildCount())
        {
            level.root->PrintTail(out, level.indent);
            levels.pop_back();
            if (levels.empty())
                return;
            continue;
        }
        ParsedNode* child = level.root->GetChild(level.next++);
        if (!(child->m_Word & Root))
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
    AddChild(node, GetChildCount());
}

void ParsedRoot::AddChild(ParsedNode* node, u32 index)
{
    if (index > GetChildCount())
        return;
    try
    {
        ParsedLinks::Insert(*this, m_Items, index, node);
    }
    catch (...)
    {
        Destroy(node);
        throw;
    }
    ParsedLinks::Link(*node, node->m_Parent, this);
}

void ParsedRoot::ReleaseChild(u32 index)
{
    if (index < GetChildCount())
        Destroy(static_cast<ParsedNode*>(ParsedLinks::Remove(*this, m_Items, index)));
}

void ParsedRoot::ReleaseChild(ParsedNode* node)
{
    const u32 count = GetChildCount();
    for (u32 i = 0; i < count; ++i)
        if (GetChild(i) == node)
        {
            ReleaseChild(i);
            return;
        }
}

void ParsedRoot::ReleaseChildren()
{
    // Bottom up, last child first, without recursion: a child root that
    // still holds children is entered, and left through its parent once
    // they are gone, so that every node is destroyed holding none.
    ParsedRoot* at = this;
    for (;;)
    {
        ParsedNode* last = static_cast<ParsedNode*>(ParsedLinks::Last(*at, at->m_Items));
        if (last == nullptr)
        {
            if (at == this)
                return;
            at = at->GetParent();
            continue;
        }
        if ((last->m_Word & Root) &&
            ParsedLinks::Last(*last, static_cast<ParsedRoot*>(last)->m_Items) != nullptr)
        {
            at = static_cast<ParsedRoot*>(last);
            continue;
        }
        ParsedLinks::DropLast(*at, at->m_Items);
        Destroy(last);
    }
}

ParsedRoot* ParsedRoot::FindChild(const char* path)
{
    // The path's length is taken once: a step looks for its caret within
    // it, so a path of a million steps is read once, not once a step.
    ParsedRoot* root = this;
    const char* const last = path + std::strlen(path);
    for (const char* step = path;;)
    {
        const char* end =
            static_cast<const char*>(std::memchr(step, '^', std::size_t(last - step)));
        const std::size_t length = std::size_t((end ? end : last) - step);
        const char* colon = static_cast<const char*>(std::memchr(step, ':', length));
        const std::size_t idLength = colon ? std::size_t(colon - step) : length;
        const char* name = colon ? colon + 1 : nullptr;
        const std::size_t nameLength = colon ? length - idLength - 1 : 0;

        ParsedRoot* match = nullptr;
        const u32 count = root->GetChildCount();
        for (u32 i = 0; i < count && !match; ++i)
        {
            ParsedNode* child = root->GetChild(i);
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
    Destroy(ParsedLinks::SwapName(*this, nullptr));
}

ParsedEntry* ParsedSection::GetName() const
{
    return ParsedLinks::Name(*this);
}

void ParsedSection::SetName(ParsedEntry* name)
{
    if (name == GetName())
        return;
    ParsedEntry* held;
    try
    {
        held = ParsedLinks::SwapName(*this, name);
    }
    catch (...)
    {
        Destroy(name);
        throw;
    }
    Destroy(held);
    if (name)
        ParsedLinks::Link(*name, name->m_Parent, this);
}

u32 ParsedSection::PrintHead(OutputStream& out, u32 indent)
{
    Indent(out, indent);
    out.Write("{", 1);
    Put(out, GetIdentifier());
    if (ParsedEntry* name = GetName())
    {
        out.Write(":", 1);
        name->Print(out, 0);
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

namespace
{

// What is left in place of a parser's node destroyed before its file.
class DeadNode : public ParsedNode
{
public:
    DeadNode() : ParsedNode(0u) {}
    void Print(OutputStream&, u32) override {}
};

} // namespace

void ParsedLinks::Bury(ParsedNode* node, u32 bytes)
{
    new (node) DeadNode;
    node->m_Word = ParsedNode::InFile | (bytes % 8 ? u32(ParsedNode::Shrunk) : 0u) |
                   (bytes / 8) << ParsedNode::CountShift;
}

u32 ParsedLinks::PlacedBytes(u32 count)
{
    return u32(sizeof(DeadNode)) + 4 * count;
}

u32* ParsedLinks::Place(void* place, u32 count)
{
    ParsedNode* node = static_cast<ParsedNode*>(place);
    Bury(node, PlacedBytes(count));
    return reinterpret_cast<u32*>(reinterpret_cast<char*>(node) + sizeof(DeadNode));
}

void ParsedLinks::ReleaseMadeByHand(ParsedNode& node, u32& first)
{
    if (!(node.m_Word & (ParsedNode::InFile | ParsedNode::Listed))) // placed
    {
        const u32* links = Links(node, first);
        ForgetFar(node, links, links + Capacity(node, first));
        Unlink(first);
        node.m_Word = (node.m_Word & (ParsedNode::TypeBits | ParsedNode::Root | ParsedNode::Far)) |
                      ParsedNode::Listed;
        return;
    }
    if (List* list = Follow<List>(node, first))
        for (u32 i = 0; i < list->size; ++i)
        {
            ParsedNode* item = static_cast<ParsedNode*>(list->item[i]);
            if (!(item->m_Word & ParsedNode::InFile))
                ParsedNode::Destroy(item);
        }
    FreeList(node, first);
}

inline u32 ParsedLinks::Dismantle(ParsedNode& node)
{
    const u32 bytes = Bytes(node);
    switch (node.m_Word & ParsedNode::TypeBits)
    {
    case ParsedNode::EntryType:
    {
        ParsedEntry& entry = static_cast<ParsedEntry&>(node);
        if (entry.m_Word & ParsedNode::Listed)
        {
            if (List* list = Follow<List>(entry, entry.m_Items))
                for (u32 i = 0; i < list->size; ++i)
                    Release(static_cast<Record*>(list->item[i]));
            FreeList(entry, entry.m_Items);
            break;
        }
        const u32 count = entry.m_Word >> ParsedNode::CountShift;
        const u32* links = Links(entry.m_Items);
        for (u32 i = 0; i < count; ++i)
            Release(Follow<Record>(entry, links[i]));
        break;
    }
    case ParsedNode::SectionType:
    {
        // Its parser's nodes, its name among them, lie in the chunks too:
        // only a listed one may hold others.
        ParsedRoot& root = static_cast<ParsedRoot&>(node);
        if (root.m_Word & ParsedNode::Listed)
        {
            ParsedNode* name = Name(root);
            if (name && !(name->m_Word & ParsedNode::InFile))
                ParsedNode::Destroy(name);
            ReleaseMadeByHand(root, root.m_Items);
        }
        break;
    }
    case ParsedNode::CommentType:
        break;
    default:
        return bytes; // dead
    }
    Release(Follow<Record>(node, node.m_Identifier));
    if (node.m_Word & ParsedNode::Far)
        parsedlinks::ForgetFar(&node.m_Identifier, reinterpret_cast<const u32*>(
                                                       reinterpret_cast<char*>(&node) + bytes));
    return bytes;
}

struct ParsedFile::Chunk
{
    Chunk* next;
    u32 size; // bytes, this header included
    u32 used; // bytes up to the end of its last node, once a newer chunk is made
};

ParsedFile::~ParsedFile()
{
    ReleaseChunks();
}

void ParsedFile::ReleaseChunks()
{
    // The children made by hand go as anywhere else; the parser's nodes
    // are all dropped in their chunks' order, the tree left unread.
    ParsedLinks::ReleaseMadeByHand(*this, m_Items);
    for (Chunk* chunk = m_Chunks; chunk != nullptr;)
    {
        char* const base = reinterpret_cast<char*>(chunk);
        const char* const end = chunk == m_Chunks ? m_Free : base + chunk->used;
        char* at = reinterpret_cast<char*>(
            (reinterpret_cast<std::uintptr_t>(base) + ChunkHeader + 7) & ~std::uintptr_t(7));
        while (at < end)
            at += ParsedLinks::Dismantle(*reinterpret_cast<ParsedNode*>(at));
        Chunk* const next = chunk->next;
        Mem::GetGeneralAlloc()->Free(chunk);
        chunk = next;
    }
    m_Chunks = nullptr;
    m_Free = m_FreeEnd = nullptr;
}

void* ParsedFile::AllocateInNewChunk(u32 size, u32 chunkBytes)
{
    static_assert(sizeof(Chunk) <= ChunkHeader, "a chunk's header");
    void* made = Mem::GetGeneralAlloc()->Malloc(chunkBytes);
    if (made == nullptr)
        return nullptr; // reported by the allocator
    if (m_Chunks != nullptr)
        m_Chunks->used = u32(m_Free - reinterpret_cast<char*>(m_Chunks));
    m_Chunks = new (made) Chunk{m_Chunks, chunkBytes, 0};
    const std::uintptr_t start =
        (reinterpret_cast<std::uintptr_t>(made) + ChunkHeader + 7) & ~std::uintptr_t(7);
    m_Free = reinterpret_cast<char*>(start);
    m_FreeEnd = static_cast<char*>(made) + chunkBytes;
    return Allocate(size);
}

} // namespace qel
