// A standard-library allocator over Mem's General allocator, for the
// containers that the library's managers keep (tables, maps, strings).
//
// A failed allocation is reported as "Malloc failed: no more available
// memory" by the General allocator; if the process goes on, std::bad_alloc
// is thrown, since a container cannot carry on without its memory.
#pragma once

#include <qel/allocator.h>
#include <qel/mem.h>

#include <cstddef>
#include <new>

namespace qel
{

template <class T>
class GeneralAllocator
{
public:
    typedef T value_type;

    GeneralAllocator() noexcept = default;
    template <class U>
    GeneralAllocator(const GeneralAllocator<U>&) noexcept
    {
    }

    T* allocate(std::size_t count)
    {
        Allocator* general = Mem::GetGeneralAlloc();
        void* p = general ? general->Malloc(static_cast<unsigned int>(count * sizeof(T))) : nullptr;
        if (p == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(p);
    }

    void deallocate(T* p, std::size_t) noexcept
    {
        // The block goes back to the allocator that owns it.
        if (p != nullptr)
            if (Allocator* owner = Allocator::GetOwner(p))
                owner->Free(p);
    }

    template <class U>
    bool operator==(const GeneralAllocator<U>&) const noexcept
    {
        return true;
    }
    template <class U>
    bool operator!=(const GeneralAllocator<U>&) const noexcept
    {
        return false;
    }
};

} // namespace qel
