#include <qel/memchunktree.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

// Node layout. A free chunk's first bytes are its node in both trees; the
// node's address is the chunk's start, so no start address is stored. With
// P = sizeof(void*):
//
//   0      address tree, left link         P bytes
//   P      address tree, right link        P bytes
//   2P     size tree, left link            P bytes
//   3P     size tree, right link           P bytes
//   4P     size in units                   4 bytes
//   4P+4   address tree balance            1 byte, -1..+1 (height right - left)
//   4P+5   size tree balance               1 byte
//   4P+6   tag (252 metapages, 254 packed allocator), checked by Validate
//   4P+7   spare, written 0
//
// 40 bytes on 64-bit hosts, 24 on 32-bit ones; GetNodeSize() stays 40 on both
// so that the allocators behave alike everywhere. Both trees are AVL trees
// without parent pointers: an operation records its path from the root on
// the stack. The size tree is ordered by (size, address), a total order, so
// any node can be found again by its key.
//
// Chunks need not be aligned (a byte-counted tree may be given any address),
// so every multi-byte field goes through memcpy, which is a plain load or
// store on the hosts we build for.

namespace qel
{

namespace
{

// ---- node layout ------------------------------------------------------------

typedef unsigned char* Node;

const std::size_t kPointer = sizeof(void*);
const std::size_t kAddressLinks = 0;
const std::size_t kSizeLinks = 2 * kPointer;
const std::size_t kSizeField = 4 * kPointer;
const std::size_t kAddressBalance = kSizeField + 4;
const std::size_t kSizeBalance = kSizeField + 5;
const std::size_t kTag = kSizeField + 6;
const std::size_t kSpare = kSizeField + 7;
const std::size_t kNodeBytes = kSizeField + 8;
static_assert(kNodeBytes <= 40, "a node must fit in GetNodeSize() bytes");

// An AVL tree of N nodes is at most about 1.44 log2(N) high; N is below
// 2^(pointer bits), so 1.5 times the pointer bits always suffices.
const int kMaxHeight = int(kPointer * 8 * 3 / 2);

const u32 kNodeSize = 40;

inline std::uintptr_t Address(const void* p)
{
    return reinterpret_cast<std::uintptr_t>(p);
}

inline Node LoadLink(const unsigned char* slot)
{
    Node node;
    std::memcpy(&node, slot, sizeof node);
    return node;
}

inline void StoreLink(unsigned char* slot, Node node)
{
    std::memcpy(slot, &node, sizeof node);
}

inline u32 SizeOf(const unsigned char* node)
{
    u32 size;
    std::memcpy(&size, node + kSizeField, sizeof size);
    return size;
}

inline void SetSize(Node node, u32 size)
{
    std::memcpy(node + kSizeField, &size, sizeof size);
}

inline void SetTag(Node node, unsigned char tag)
{
    node[kTag] = tag;
    node[kSpare] = 0;
}

// The ends of a chunk; chunks never wrap around the address space.
inline std::uintptr_t EndOf(const unsigned char* node, u32 unit)
{
    return Address(node) + std::uintptr_t(unit) * SizeOf(node);
}

// ---- the two orders ---------------------------------------------------------

struct ByAddress
{
    static const std::size_t kLinks = kAddressLinks;
    static const std::size_t kBalance = kAddressBalance;
    static bool Less(const unsigned char* a, const unsigned char* b)
    {
        return Address(a) < Address(b);
    }
};

struct BySize
{
    static const std::size_t kLinks = kSizeLinks;
    static const std::size_t kBalance = kSizeBalance;
    static bool Less(const unsigned char* a, const unsigned char* b)
    {
        const u32 sa = SizeOf(a), sb = SizeOf(b);
        return sa < sb || (sa == sb && Address(a) < Address(b));
    }
};

// ---- balanced trees ---------------------------------------------------------

// The AVL operations over one of the two link sets. `root` is the address of
// the tree's root pointer. Directions: 0 left, 1 right.
template <class Order>
struct Avl
{
    static unsigned char* Slot(Node n, int dir) { return n + Order::kLinks + dir * kPointer; }
    static Node Child(const unsigned char* n, int dir)
    {
        return LoadLink(n + Order::kLinks + dir * kPointer);
    }
    static void SetChild(Node n, int dir, Node child) { StoreLink(Slot(n, dir), child); }
    static int Balance(const unsigned char* n)
    {
        return int(static_cast<signed char>(n[Order::kBalance]));
    }
    static void SetBalance(Node n, int balance)
    {
        n[Order::kBalance] = static_cast<unsigned char>(static_cast<signed char>(balance));
    }

    // Rotates the subtree at `p`, whose balance is +2 or -2, and returns its
    // new root. `lower` tells whether the subtree ended up one level lower
    // than it was with the imbalance (always so after an insertion).
    static Node Rotate(Node p, bool& lower)
    {
        const int dir = Balance(p) > 0 ? 1 : 0;
        const int sign = dir ? 1 : -1;
        Node c = Child(p, dir);
        if (Balance(c) == -sign)
        {
            Node g = Child(c, 1 - dir);
            SetChild(c, 1 - dir, Child(g, dir));
            SetChild(p, dir, Child(g, 1 - dir));
            SetChild(g, dir, c);
            SetChild(g, 1 - dir, p);
            const int bg = Balance(g);
            SetBalance(p, bg == sign ? -sign : 0);
            SetBalance(c, bg == -sign ? sign : 0);
            SetBalance(g, 0);
            lower = true;
            return g;
        }
        SetChild(p, dir, Child(c, 1 - dir));
        SetChild(c, 1 - dir, p);
        if (Balance(c) == 0)
        {
            // Only after a removal: the height stays.
            SetBalance(p, sign);
            SetBalance(c, -sign);
            lower = false;
        }
        else
        {
            SetBalance(p, 0);
            SetBalance(c, 0);
            lower = true;
        }
        return c;
    }

    static void Insert(unsigned char* root, Node node)
    {
        Node path[kMaxHeight];
        unsigned char dirs[kMaxHeight];
        int depth = 0;
        for (Node cur = LoadLink(root); cur != nullptr; ++depth)
        {
            const int dir = Order::Less(cur, node) ? 1 : 0;
            path[depth] = cur;
            dirs[depth] = static_cast<unsigned char>(dir);
            cur = Child(cur, dir);
        }
        SetChild(node, 0, nullptr);
        SetChild(node, 1, nullptr);
        SetBalance(node, 0);
        if (depth == 0)
        {
            StoreLink(root, node);
            return;
        }
        SetChild(path[depth - 1], dirs[depth - 1], node);
        for (int i = depth - 1; i >= 0; --i)
        {
            Node p = path[i];
            const int balance = Balance(p) + (dirs[i] ? 1 : -1);
            SetBalance(p, balance);
            if (balance == 0)
                return;
            if (balance == 1 || balance == -1)
                continue;
            bool lower;
            Node top = Rotate(p, lower);
            StoreLink(i == 0 ? root : Slot(path[i - 1], dirs[i - 1]), top);
            return;
        }
    }

    // `node` must be in the tree, with the key it was inserted under.
    static void Remove(unsigned char* root, Node node)
    {
        Node path[kMaxHeight];
        unsigned char dirs[kMaxHeight];
        int depth = 0;
        for (Node cur = LoadLink(root); cur != node; ++depth)
        {
            const int dir = Order::Less(cur, node) ? 1 : 0;
            path[depth] = cur;
            dirs[depth] = static_cast<unsigned char>(dir);
            cur = Child(cur, dir);
        }
        unsigned char* parentSlot = depth == 0 ? root : Slot(path[depth - 1], dirs[depth - 1]);
        Node left = Child(node, 0);
        Node right = Child(node, 1);
        if (left == nullptr || right == nullptr)
        {
            StoreLink(parentSlot, left != nullptr ? left : right);
        }
        else
        {
            // The successor, the leftmost node on the right, takes the
            // node's place and balance.
            const int at = depth;
            path[depth] = node;
            dirs[depth++] = 1;
            Node successor = right;
            for (Node next; (next = Child(successor, 0)) != nullptr; successor = next)
            {
                path[depth] = successor;
                dirs[depth++] = 0;
            }
            SetChild(path[depth - 1], dirs[depth - 1], Child(successor, 1));
            SetChild(successor, 0, Child(node, 0));
            SetChild(successor, 1, Child(node, 1));
            SetBalance(successor, Balance(node));
            path[at] = successor;
            StoreLink(parentSlot, successor);
        }
        for (int i = depth - 1; i >= 0; --i)
        {
            Node p = path[i];
            const int balance = Balance(p) - (dirs[i] ? 1 : -1);
            SetBalance(p, balance);
            if (balance == 1 || balance == -1)
                return;
            if (balance == 0)
                continue;
            bool lower;
            Node top = Rotate(p, lower);
            StoreLink(i == 0 ? root : Slot(path[i - 1], dirs[i - 1]), top);
            if (!lower)
                return;
        }
    }

    // The slot that points to `node`, which must be in the tree, and its
    // neighbours in the order (null at the ends).
    static unsigned char* Locate(unsigned char* root, const unsigned char* node, Node& before,
                                 Node& after)
    {
        before = after = nullptr;
        unsigned char* slot = root;
        for (Node cur; (cur = LoadLink(slot)) != node;)
        {
            const int dir = Order::Less(cur, node) ? 1 : 0;
            (dir ? before : after) = cur;
            slot = Slot(cur, dir);
        }
        if (Node left = Child(node, 0))
        {
            for (Node next; (next = Child(left, 1)) != nullptr;)
                left = next;
            before = left;
        }
        if (Node right = Child(node, 1))
        {
            for (Node next; (next = Child(right, 0)) != nullptr;)
                right = next;
            after = right;
        }
        return slot;
    }

    // Puts `fresh` in the place of `old`, which it must equal in order
    // against every other node; `old`'s node stays readable meanwhile.
    static void Replace(unsigned char* root, Node old, Node fresh)
    {
        unsigned char* slot = root;
        for (Node cur; (cur = LoadLink(slot)) != old;)
            slot = Slot(cur, Order::Less(cur, old) ? 1 : 0);
        SetChild(fresh, 0, Child(old, 0));
        SetChild(fresh, 1, Child(old, 1));
        SetBalance(fresh, Balance(old));
        StoreLink(slot, fresh);
    }

    // Checks the subtree at `n` against the exclusive bounds `low` and
    // `high` (null: none) and returns its height, or -1 if anything is wrong.
    static int Check(const unsigned char* n, const unsigned char* low, const unsigned char* high,
                     int depth, u32& nodes)
    {
        if (n == nullptr)
            return 0;
        if (depth >= kMaxHeight || ++nodes == 0)
            return -1;
        if ((low != nullptr && !Order::Less(low, n)) || (high != nullptr && !Order::Less(n, high)))
            return -1;
        const int left = Check(Child(n, 0), low, n, depth + 1, nodes);
        if (left < 0)
            return -1;
        const int right = Check(Child(n, 1), n, high, depth + 1, nodes);
        if (right < 0 || right - left != Balance(n) || right - left > 1 || left - right > 1)
            return -1;
        return (left > right ? left : right) + 1;
    }
};

typedef Avl<ByAddress> AddressTree;
typedef Avl<BySize> SizeTree;

// ---- moving nodes between places --------------------------------------------

inline unsigned char* RootSlot(unsigned char*& root)
{
    return reinterpret_cast<unsigned char*>(&root);
}

inline bool SizeKeyLess(u32 sizeA, const unsigned char* a, u32 sizeB, const unsigned char* b)
{
    return sizeA < sizeB || (sizeA == sizeB && Address(a) < Address(b));
}

// Puts `fresh` where `node` is in the size tree, behind `slot`.
void TakePlace(unsigned char* slot, Node node, Node fresh)
{
    SizeTree::SetChild(fresh, 0, SizeTree::Child(node, 0));
    SizeTree::SetChild(fresh, 1, SizeTree::Child(node, 1));
    SizeTree::SetBalance(fresh, SizeTree::Balance(node));
    StoreLink(slot, fresh);
}

// Gives the size-tree node `node` the key (`size`, `fresh`): the chunk at
// `fresh` (`node` itself, or a chunk outside the tree) takes its place with
// that size. A chunk cut or merged usually keeps its place in the order (a
// tail cut from the largest chunk, a chunk merged into the largest): then
// only the links move, with no rebalancing.
void Rekey(unsigned char* root, Node node, Node fresh, u32 size)
{
    Node before, after;
    unsigned char* slot = SizeTree::Locate(root, node, before, after);
    if ((before == nullptr || SizeKeyLess(SizeOf(before), before, size, fresh)) &&
        (after == nullptr || SizeKeyLess(size, fresh, SizeOf(after), after)))
    {
        if (fresh != node)
            TakePlace(slot, node, fresh);
        SetSize(fresh, size);
        return;
    }
    SizeTree::Remove(root, node);
    SetSize(fresh, size);
    SizeTree::Insert(root, fresh);
}

} // namespace

// ---- taking chunks ----------------------------------------------------------

MemChunkTree::MemChunkTree(u32 unit)
    : m_AddressRoot(nullptr), m_SizeRoot(nullptr), m_Unit(unit == 0 ? 1 : unit),
      m_MinimumCount(u32((u64(kNodeSize) + m_Unit - 1) / m_Unit)), m_NumberOfChunks(0),
      m_FreeUnits(0), m_Largest(0)
{
}

void MemChunkTree::Reset()
{
    m_AddressRoot = nullptr;
    m_SizeRoot = nullptr;
    m_NumberOfChunks = 0;
    m_FreeUnits = 0;
    m_Largest = 0;
}

void* MemChunkTree::GetChunk(u32& count, unsigned char tag)
{
    const u32 n = count;
    if (n == 0 || n > m_Largest)
        return nullptr;

    // One walk finds the last node of size at most n and the first node of
    // a larger size. If the former is an exact fit it is the last of that
    // size, as the rule wants; otherwise the latter is the first fit.
    Node atMost = nullptr;
    Node above = nullptr;
    unsigned char* aboveSlot = nullptr;
    for (unsigned char* slot = RootSlot(m_SizeRoot);;)
    {
        Node cur = LoadLink(slot);
        if (cur == nullptr)
            break;
        if (SizeOf(cur) <= n)
        {
            atMost = cur;
            slot = SizeTree::Slot(cur, 1);
        }
        else
        {
            above = cur;
            aboveSlot = slot;
            slot = SizeTree::Slot(cur, 0);
        }
    }
    count = n;
    if (atMost != nullptr && SizeOf(atMost) == n)
        return Take(atMost, count, tag);
    // `atMost` is the chunk just before `above` in size order.
    return Take(above, count, tag, aboveSlot, atMost);
}

void* MemChunkTree::GetChunkAt(void* start, u32& count, unsigned char tag)
{
    const u32 n = count;
    if (n == 0 || start == nullptr)
        return nullptr;
    Node cur = m_AddressRoot;
    while (cur != nullptr && cur != start)
        cur = AddressTree::Child(cur, Address(cur) < Address(start) ? 1 : 0);
    if (cur == nullptr || SizeOf(cur) < n)
        return nullptr;
    count = n;
    return Take(cur, count, tag);
}

void* MemChunkTree::Take(unsigned char* chosen, u32& count, unsigned char tag, unsigned char* slot,
                         const unsigned char* before)
{
    const u32 size = SizeOf(chosen);
    if (u64(m_Unit) * (size - count) < kNodeSize)
    {
        SizeTree::Remove(RootSlot(m_SizeRoot), chosen);
        AddressTree::Remove(RootSlot(m_AddressRoot), chosen);
        --m_NumberOfChunks;
        count = size;
    }
    else if (u64(m_Unit) * count < kNodeSize)
    {
        // The tail's node would overlap the chunk's: unlink the chunk first,
        // then insert the tail afresh.
        SizeTree::Remove(RootSlot(m_SizeRoot), chosen);
        AddressTree::Remove(RootSlot(m_AddressRoot), chosen);
        Node tail = chosen + std::uintptr_t(m_Unit) * count;
        SetSize(tail, size - count);
        SetTag(tail, tag);
        AddressTree::Insert(RootSlot(m_AddressRoot), tail);
        SizeTree::Insert(RootSlot(m_SizeRoot), tail);
    }
    else
    {
        // The tail keeps the chunk's place in the address order. It starts
        // at least 40 bytes in, so it does not overlap the chunk's node.
        Node tail = chosen + std::uintptr_t(m_Unit) * count;
        SetTag(tail, tag);
        // The tail is smaller than the chunk, so it stays before the chunk's
        // successor: with the walk's slot, only the predecessor is checked.
        if (slot != nullptr &&
            (before == nullptr || SizeKeyLess(SizeOf(before), before, size - count, tail)))
        {
            TakePlace(slot, chosen, tail);
            SetSize(tail, size - count);
        }
        else
        {
            Rekey(RootSlot(m_SizeRoot), chosen, tail, size - count);
        }
        AddressTree::Replace(RootSlot(m_AddressRoot), chosen, tail);
    }
    m_FreeUnits -= count;
    // Only taking from a largest chunk can lower the largest size.
    if (size == m_Largest)
        UpdateLargest();
    return chosen;
}

// ---- returning chunks -------------------------------------------------------

bool MemChunkTree::InsertChunkInTree(void* start, u32 count, unsigned char tag, bool merge)
{
    const u64 bytes = u64(m_Unit) * count;
    if (start == nullptr || bytes < kNodeSize || bytes > u64(UINTPTR_MAX - Address(start)) ||
        u64(m_FreeUnits) + count > 0xFFFFFFFFu)
        return false;
    Node chunk = static_cast<Node>(start);
    const std::uintptr_t end = Address(chunk) + std::uintptr_t(bytes);

    // The free chunks just below and just above.
    Node lower = nullptr;
    Node upper = nullptr;
    for (Node cur = m_AddressRoot; cur != nullptr;)
    {
        if (cur == chunk)
            return false;
        if (Address(cur) < Address(chunk))
        {
            lower = cur;
            cur = AddressTree::Child(cur, 1);
        }
        else
        {
            upper = cur;
            cur = AddressTree::Child(cur, 0);
        }
    }
    if ((lower != nullptr && EndOf(lower, m_Unit) > Address(chunk)) ||
        (upper != nullptr && Address(upper) < end))
        return false;
    const bool withLower = merge && lower != nullptr && EndOf(lower, m_Unit) == Address(chunk);
    const bool withUpper = merge && upper != nullptr && Address(upper) == end;

    if (withLower)
    {
        u32 size = SizeOf(lower) + count;
        if (withUpper)
        {
            size += SizeOf(upper);
            SizeTree::Remove(RootSlot(m_SizeRoot), upper);
            AddressTree::Remove(RootSlot(m_AddressRoot), upper);
            --m_NumberOfChunks;
        }
        SetTag(lower, tag);
        Rekey(RootSlot(m_SizeRoot), lower, lower, size);
    }
    else if (withUpper)
    {
        SetTag(chunk, tag);
        Rekey(RootSlot(m_SizeRoot), upper, chunk, count + SizeOf(upper));
        AddressTree::Replace(RootSlot(m_AddressRoot), upper, chunk);
    }
    else
    {
        SetSize(chunk, count);
        SetTag(chunk, tag);
        AddressTree::Insert(RootSlot(m_AddressRoot), chunk);
        SizeTree::Insert(RootSlot(m_SizeRoot), chunk);
        ++m_NumberOfChunks;
    }
    m_FreeUnits += count;
    // A merged chunk is at least as large as the neighbours it swallowed.
    const u32 size = SizeOf(withLower ? lower : chunk);
    if (size > m_Largest)
        m_Largest = size;
    return true;
}

// ---- queries and checks -----------------------------------------------------

bool MemChunkTree::FindChunk(const void* address, void** start, u32* count) const
{
    const unsigned char* found = nullptr;
    for (const unsigned char* cur = m_AddressRoot; cur != nullptr;)
    {
        if (Address(cur) <= Address(address))
        {
            found = cur;
            cur = AddressTree::Child(cur, 1);
        }
        else
        {
            cur = AddressTree::Child(cur, 0);
        }
    }
    if (found == nullptr || EndOf(found, m_Unit) <= Address(address))
        return false;
    if (start != nullptr)
        *start = const_cast<unsigned char*>(found);
    if (count != nullptr)
        *count = SizeOf(found);
    return true;
}

void MemChunkTree::ForEachChunk(void (*visit)(void* start, u32 count, void* context),
                                void* context) const
{
    Node stack[kMaxHeight];
    int depth = 0;
    Node cur = m_AddressRoot;
    while (cur != nullptr || depth > 0)
    {
        while (cur != nullptr && depth < kMaxHeight)
        {
            stack[depth++] = cur;
            cur = AddressTree::Child(cur, 0);
        }
        cur = stack[--depth];
        // Read the right link first: the visitor may look at the chunk.
        Node right = AddressTree::Child(cur, 1);
        visit(cur, SizeOf(cur), context);
        cur = right;
    }
}

bool MemChunkTree::Validate(unsigned char tag) const
{
    u32 addressNodes = 0, sizeNodes = 0;
    if (AddressTree::Check(m_AddressRoot, nullptr, nullptr, 0, addressNodes) < 0 ||
        SizeTree::Check(m_SizeRoot, nullptr, nullptr, 0, sizeNodes) < 0 ||
        addressNodes != m_NumberOfChunks || sizeNodes != m_NumberOfChunks)
        return false;

    // Walk the address tree in order: chunks apart, sizes, tags, counters.
    struct Totals
    {
        const MemChunkTree* tree;
        unsigned char tag;
        bool ok;
        std::uintptr_t previousEnd;
        u64 freeUnits;
        u32 largest;
    } totals = {this, tag, true, 0, 0, 0};
    ForEachChunk(
        [](void* start, u32 count, void* context)
        {
            Totals& t = *static_cast<Totals*>(context);
            const unsigned char* node = static_cast<const unsigned char*>(start);
            const u64 bytes = u64(t.tree->m_Unit) * count;
            // Every node must also be in the size tree, found by its key.
            const unsigned char* cur = t.tree->m_SizeRoot;
            while (cur != nullptr && cur != node)
                cur = SizeTree::Child(cur, BySize::Less(cur, node) ? 1 : 0);
            if (cur == nullptr || Address(node) < t.previousEnd || bytes < kNodeSize ||
                bytes > u64(UINTPTR_MAX - Address(node)) || node[kTag] != t.tag)
                t.ok = false;
            t.previousEnd = Address(node) + std::uintptr_t(bytes);
            t.freeUnits += count;
            if (count > t.largest)
                t.largest = count;
        },
        &totals);
    return totals.ok && totals.freeUnits == m_FreeUnits && totals.largest == m_Largest;
}

void MemChunkTree::UpdateLargest()
{
    const unsigned char* last = m_SizeRoot;
    if (last == nullptr)
    {
        m_Largest = 0;
        return;
    }
    for (const unsigned char* next; (next = SizeTree::Child(last, 1)) != nullptr;)
        last = next;
    m_Largest = SizeOf(last);
}

} // namespace qel
