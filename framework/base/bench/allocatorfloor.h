// The floor that the library's block layout allows: a model, for the
// benchmarks only, that does on a malloc and a free only what the layout
// forces on any allocator behind the Allocator interface, with none of the
// library's statistics, limits, locks or checks.
//
// - The call goes through a table of virtual operations (the interface is
//   an abstract class).
// - Malloc: the class from the size, the calling thread's list of the class
//   (initial-exec thread-local storage, as a shared library can have), a pop.
// - Free through the General allocator: the owner from the page records (the
//   only way the layout tells a pool block from a packed one), then the
//   class: a pool page's from the low byte of its record, where the pool
//   keeps it; a packed block's from its capacity in its 16-byte header. A
//   free through the pool alone reads its page's header instead, which is
//   what the pool's Free is given.
// - A push on the thread's list of that class.
//
// The lists have no limit and give no block back while a row runs, so after
// a warm-up every malloc is a hit: a list that is empty takes one block of
// its class's largest size from the real allocator. Blocks go back to it
// when the row ends (GiveBack) and when the thread ends: held past its row,
// a working set's worth of them would pin the pages of the rows after it.
#pragma once

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>
#include <qel/pagerecordtable.h>

#include "base/memory/packedrun.h"
#include "base/memory/poolallocatorpage.h"

namespace qelbench
{
namespace floor
{

// Pool classes: 16 to 256 bytes a 16; packed classes above: 8 a doubling from
// 256 bytes up to 64 KB, as the library's packed caches have them.
const unsigned kPoolClasses = 16;
const unsigned kPackedClasses = 65;

inline unsigned PoolClass(unsigned size)
{
    return (size - 1) / 16;
}

inline unsigned PoolClassSize(unsigned index)
{
    return 16 * (index + 1);
}

// Between 2^b and 2^(b+1) the packed classes go up in eighths of 2^b, class
// 8(b - 8) holding 2^b bytes: the top four bits of a size count the eighths.
// The packed class that every block of `size` bytes fits (size above 256).
inline unsigned PackedClassAbove(unsigned size)
{
    const unsigned below = size - 1, b = unsigned(31 - __builtin_clz(below));
    return 8 * b + (below >> (b - 3)) - 71;
}

inline unsigned PackedClassSize(unsigned index)
{
    const unsigned doubling = index >> 3;
    return (256u << doubling) + (index & 7) * (32u << doubling);
}

// The packed class whose largest size a block of `capacity` bytes holds.
inline unsigned PackedClassBelow(unsigned capacity)
{
    const unsigned b = unsigned(31 - __builtin_clz(capacity));
    return 8 * b + (capacity >> (b - 3)) - 72;
}

struct Lists
{
    void* pool[kPoolClasses];
    void* packed[kPackedClasses];
};

extern __thread Lists t_Lists __attribute__((tls_model("initial-exec")));

inline void Push(void*& head, void* block)
{
    *static_cast<void**>(block) = head;
    head = block;
}

inline void* Pop(void*& head)
{
    void* block = head;
    if (block != nullptr)
        head = *static_cast<void**>(block);
    return block;
}

// The blocks of the thread's lists go back when it ends.
void KeepForThreadEnd();

// Gives the blocks of the calling thread's lists back to the real allocator.
void GiveBack();

// A block of the list, or else one of `size` bytes from the real allocator.
inline void* PopOrTake(void*& head, qel::Allocator* allocator, unsigned size)
{
    if (void* block = Pop(head))
        return block;
    KeepForThreadEnd();
    return allocator->MallocNoThrow(size);
}

class Model
{
public:
    virtual ~Model() = default;
    virtual void* Malloc(unsigned size) = 0;
    virtual void Free(void* p) = 0;
};

// Over the pool allocator alone, for sizes 1 to 256.
class PoolModel final : public Model
{
public:
    explicit PoolModel(qel::Allocator* pool) : m_Pool(pool) {}

    void* Malloc(unsigned size) override
    {
        const unsigned index = PoolClass(size);
        return PopOrTake(t_Lists.pool[index], m_Pool, PoolClassSize(index));
    }
    void Free(void* p) override
    {
        const qel::PoolAllocatorPage* page = qel::PoolAllocatorPage::Of(p);
        Push(t_Lists.pool[PoolClass(unsigned(page->blockSize))], p);
    }

private:
    qel::Allocator* m_Pool;
};

// Over the General allocator, for sizes 1 to 64 KB.
class GeneralModel final : public Model
{
public:
    explicit GeneralModel(qel::Allocator* general)
        : m_General(general), m_Records(qel::PageManager::GetSingletonInstance().GetRecords()),
          m_PoolOwner(
              qel::PageManager::GetSingletonInstance().GetOwnerIndex(qel::Mem::GetSmallAlloc()))
    {
    }

    void* Malloc(unsigned size) override
    {
        if (size <= 256)
        {
            const unsigned index = PoolClass(size);
            return PopOrTake(t_Lists.pool[index], m_General, PoolClassSize(index));
        }
        const unsigned index = PackedClassAbove(size);
        return PopOrTake(t_Lists.packed[index], m_General, PackedClassSize(index));
    }
    void Free(void* p) override
    {
        const unsigned record = m_Records.Find(p)->load(std::memory_order_relaxed);
        if (qel::PageRecordTable::OwnerOf(record) == m_PoolOwner)
            return Push(t_Lists.pool[(record & qel::PageRecordTable::TagMask) - 1], p);
        Push(t_Lists.packed[PackedClassBelow(qel::PackedBlock::Of(p)->capacity)], p);
    }

private:
    qel::Allocator* m_General;
    const qel::PageRecordTable& m_Records;
    unsigned m_PoolOwner;
};

// The models, made where the compiler cannot see their type at the call.
Model* Pool();
Model* General();

} // namespace floor
} // namespace qelbench
