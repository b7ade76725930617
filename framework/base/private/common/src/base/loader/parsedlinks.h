// Links between the parts of a parsed tree, 32 bits each: the distance from
// the node that holds the link to its target, in 4-byte units, so that a
// link reaches 8 GB either way; 0 is null. A file's nodes, their lists and
// the pool's records all come from the general allocator and lie that
// close. A target farther away (seen from a node on the stack or in static
// storage, or in a process whose heap is that large) is kept in a table
// under the link's address, the link holding kFar, and its node is marked
// so that it forgets its far links when it dies. Trees are used by one
// thread at a time, as the string pool is: the table is not locked.
//
// A node's items (an entry's parameters, a root's children) are links in
// the node from its first item on, their count in the node's word; a node
// made or edited by hand (Listed) keeps them in a list on the general
// allocator instead, to which its first item links.
//
// A parsed file keeps its children's links in a dead node of its chunks
// until they are edited: it is placed, the one root neither in a file's
// chunks nor listed.
//
// A parser's section with a name entry has it right behind itself in its
// chunk (NamedAfter); any other section keeps its name entry in its list,
// which it then has even without children.
//
// A parser's node keeps the room it was made with, so that its file can
// step through its chunks node by node: items dropped from the end of those
// in the node leave it Shrunk, the room kept in the link past the last
// item; a node whose items move to a list keeps its room in its count. A
// parser's node destroyed before its file is left in place as a dead node
// (type 0) whose count is its size in 8-byte units, Shrunk when 4 bytes
// more: nodes lie on 4-byte boundaries, packed.
#pragma once

#include <qel/export.h>
#include <qel/parsednode.h>

#include <cstdint>

namespace qel
{

namespace parsedlinks
{

const u32 kFar = 0x80000000u;

const void* FarTarget(const u32* link);
void SetFar(const u32* link, const void* target);
// Forgets the far links among those from `first` up to `end`.
void ForgetFar(const u32* first, const u32* end);

// The bits of a distance that make it far: those of a target off a 4-byte
// boundary, or every one while every link is made far.
extern std::intptr_t g_FarBits;
// While set, every link made is kept in the table; and the number of
// links it holds (tests of the far links).
QEL_API void MakeEveryLinkFar(bool every);
QEL_API u32 CountFarLinks();

} // namespace parsedlinks

struct ParsedLinks
{
    template <class T>
    static T* Follow(const ParsedNode& holder, const u32& link)
    {
        if (link == 0)
            return nullptr;
        if (link == parsedlinks::kFar)
            return static_cast<T*>(const_cast<void*>(parsedlinks::FarTarget(&link)));
        const std::uintptr_t distance = std::uintptr_t(std::intptr_t(s32(link))) * 4;
        return reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(&holder) + distance);
    }

    static void Link(ParsedNode& holder, u32& link, const void* target)
    {
        if (link == parsedlinks::kFar)
            parsedlinks::ForgetFar(&link, &link + 1);
        link = 0;
        if (target != nullptr)
            LinkNew(holder, link, target);
    }

    // Links to a target that is not null from a link that holds nothing.
    static void LinkNew(ParsedNode& holder, u32& link, const void* target)
    {
        // An arithmetic shift: exact once the low bits are known clear.
        const std::intptr_t distance =
            reinterpret_cast<std::intptr_t>(target) - reinterpret_cast<std::intptr_t>(&holder);
        const s64 units = s64(distance) >> 2;
        if ((distance & parsedlinks::g_FarBits) == 0 && u64(units + 0x7FFFFFFF) < 0xFFFFFFFFull)
            link = u32(units);
        else
            LinkFar(holder, link, target);
    }
    static void LinkFar(ParsedNode& holder, u32& link, const void* target);

    static void Unlink(u32& link)
    {
        if (link == parsedlinks::kFar)
            parsedlinks::ForgetFar(&link, &link + 1);
        link = 0;
    }

    // Forgets the far links among the holder's from `first` up to `end`.
    static void ForgetFar(const ParsedNode& holder, const u32* first, const u32* end)
    {
        if (holder.m_Word & ParsedNode::Far)
            parsedlinks::ForgetFar(first, end);
    }

    // ---- items: an entry's parameters or a root's children

    // A hand-made node's items, and a section's name entry.
    struct List
    {
        u32 size;
        u32 capacity;
        void* name;
        void* item[1];
    };

    // The links from `first` on.
    static u32* Links(const u32& first)
    {
        return reinterpret_cast<u32*>(reinterpret_cast<std::uintptr_t>(&first));
    }
    // The same for a node that is not listed and may be a parsed file,
    // whose links are placed in its chunks.
    static u32* Links(const ParsedNode& node, const u32& first)
    {
        return node.m_Word & ParsedNode::InFile ? Links(first) : Follow<u32>(node, first);
    }
    static u32 Count(const ParsedNode& node, const u32& first)
    {
        if (!(node.m_Word & ParsedNode::Listed))
            return node.m_Word >> ParsedNode::CountShift;
        const List* list = Follow<List>(node, first);
        return list ? list->size : 0;
    }
    // An item below the count.
    static void* Get(const ParsedNode& node, const u32& first, u32 index)
    {
        if (!(node.m_Word & ParsedNode::Listed))
            return Follow<void>(node, Links(node, first)[index]);
        return Follow<List>(node, first)->item[index];
    }
    // Inserts before `index` (at most the count), the node's items moved to
    // a list first. Without memory the allocator reports it and
    // std::bad_alloc goes on, nothing changed.
    static void Insert(ParsedNode& node, u32& first, u32 index, void* item);
    // Takes an item out, the node's items moved to a list first, and gives
    // it.
    static void* Remove(ParsedNode& node, u32& first, u32 index);
    // The last item, null when there is none; and its removal, wherever
    // the items are kept (a node being destroyed needs no list).
    static void* Last(const ParsedNode& node, const u32& first)
    {
        if (!(node.m_Word & ParsedNode::Listed))
        {
            const u32 count = node.m_Word >> ParsedNode::CountShift;
            return count ? Follow<void>(node, Links(node, first)[count - 1]) : nullptr;
        }
        const List* list = Follow<List>(node, first);
        return list && list->size ? list->item[list->size - 1] : nullptr;
    }
    static void DropLast(ParsedNode& node, u32& first)
    {
        if (node.m_Word & ParsedNode::Listed)
        {
            --Follow<List>(node, first)->size;
            return;
        }
        const u32 room = Capacity(node, first);
        u32& last = Links(node, first)[(node.m_Word >> ParsedNode::CountShift) - 1];
        Unlink(last);
        last = room;
        node.m_Word = (node.m_Word - (1 << ParsedNode::CountShift)) | ParsedNode::Shrunk;
    }
    // A section's name entry, null when it has none.
    static ParsedEntry* Name(const ParsedRoot& section);
    // Takes the entry over as the section's name (null for none) and gives
    // the one held before, the section no longer holding it. Without
    // memory for a list the allocator reports it and std::bad_alloc goes
    // on, nothing changed.
    static ParsedEntry* SwapName(ParsedRoot& section, ParsedEntry* name);
    // Frees the list of a node that has one, emptied of its items.
    static void FreeList(ParsedNode& node, u32& first);
    // A list of exactly `count` items for a listed node that has none.
    static void MakeList(ParsedNode& node, u32& first, void* const* items, u32 count);

    // ---- the parser's nodes in their file's chunks

    // The items a parser's node has room for in itself.
    static u32 Capacity(const ParsedNode& node, const u32& first)
    {
        const u32 count = node.m_Word >> ParsedNode::CountShift;
        if ((node.m_Word & (ParsedNode::Shrunk | ParsedNode::Listed)) == ParsedNode::Shrunk)
            return Links(node, first)[count];
        return count ? count : 1;
    }
    // The bytes a parser's node takes, dead or alive (in line: a file steps
    // through its chunks with it).
    static u32 Bytes(const ParsedNode& node)
    {
        const u32 count = node.m_Word >> ParsedNode::CountShift;
        u32 bytes;
        switch (node.m_Word & ParsedNode::TypeBits)
        {
        case ParsedNode::EntryType:
        {
            const ParsedEntry& entry = static_cast<const ParsedEntry&>(node);
            bytes = Offset(entry, entry.m_Items) + 4 * Capacity(entry, entry.m_Items);
            break;
        }
        case ParsedNode::SectionType:
        {
            const ParsedRoot& root = static_cast<const ParsedRoot&>(node);
            bytes = Offset(root, root.m_Items) + 4 * Capacity(root, root.m_Items);
            break;
        }
        case ParsedNode::CommentType:
            bytes = u32(sizeof(ParsedComment));
            break;
        default:
            return 8 * count + (node.m_Word & ParsedNode::Shrunk ? 4 : 0);
        }
        return bytes;
    }
    // Leaves a parser's node, its destructor run, as a dead node of `bytes`.
    static void Bury(ParsedNode* node, u32 bytes);
    // Drops what a parser's node holds in place, without its destructor:
    // its texts, its list and its far links, and the nodes made by hand it
    // holds (its parser's nodes are in the chunks too). Gives its bytes.
    static u32 Dismantle(ParsedNode& node);
    // Destroys the listed node's items that were made by hand and frees
    // its list; a parsed file's placed items, all the parser's, are let go
    // as they are, the file left with an empty list.
    static void ReleaseMadeByHand(ParsedNode& node, u32& first);
    // The bytes of a dead node that holds `count` links, and its links
    // once it is made at `place`.
    static u32 PlacedBytes(u32 count);
    static u32* Place(void* place, u32 count);

private:
    static u32 Offset(const ParsedNode& node, const u32& member)
    {
        return u32(reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&node));
    }
    // The node's list with room for `extra` more items (just that much
    // with `exact`), the items moved there from the node first.
    static List* Room(ParsedNode& node, u32& first, u32 extra, bool exact);
};

} // namespace qel
