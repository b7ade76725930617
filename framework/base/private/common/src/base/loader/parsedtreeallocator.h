// The memory of the nodes the parser makes. Each parsed file lays its nodes
// out one after another in chunks of pages that it owns (ParsedFile::
// Allocate); the chunks come from this page allocator, a process-wide one
// of its own, so that the owner lookup of a node's delete ends here. That
// delete does nothing: the node's memory goes back with its file's chunks
// when the file is destroyed. A file of thousands of nodes so costs a few
// page runs instead of a block and a free per node.
//
// Made before the string pool (which every holder of trees makes first),
// so that it outlives every tree at exit.
#pragma once

#include <qel/pageallocator.h>

#include <atomic>

namespace qel
{

class ParsedTreeAllocator final : public PageAllocator
{
public:
    static ParsedTreeAllocator& GetSingletonInstance()
    {
        ParsedTreeAllocator* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? *instance : *CreateSingletonInstance();
    }

    // A node's delete: its memory stays in its file's chunk. No node starts
    // a chunk (the chunk's header does), so this never sees a chunk.
    void Free(const void*) override {}
    // Gives back a chunk that Malloc returned.
    void FreeChunk(void* chunk) { PageAllocator::Free(chunk); }

private:
    template <class T, class Storage>
    friend class Singleton;

    ParsedTreeAllocator() = default;

    static ParsedTreeAllocator* CreateSingletonInstance();

    static std::atomic<ParsedTreeAllocator*> ms_SingletonInstance;
};

} // namespace qel
