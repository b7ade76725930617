// A standard-library allocator over Mem's Native allocator: the memory
// report keeps what it reads there, apart from the page-based allocators it
// describes. Running out of memory throws std::bad_alloc, which the report's
// entry points catch.
#pragma once

#include <qel/mem.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

namespace qel
{
namespace report
{

template <class T>
class NativeStl
{
public:
    typedef T value_type;

    NativeStl() noexcept = default;
    template <class U>
    NativeStl(const NativeStl<U>&) noexcept
    {
    }

    T* allocate(std::size_t count)
    {
        qel::Allocator* native = Mem::GetNativeAlloc();
        void* p = native && count <= 0xFFFFFFFFu / sizeof(T)
                      ? native->MallocNoThrow(static_cast<unsigned int>(count * sizeof(T)))
                      : nullptr;
        if (p == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(p);
    }
    void deallocate(T* p, std::size_t) noexcept { Mem::GetNativeAlloc()->Free(p); }

    template <class U>
    bool operator==(const NativeStl<U>&) const noexcept
    {
        return true;
    }
    template <class U>
    bool operator!=(const NativeStl<U>&) const noexcept
    {
        return false;
    }
};

template <class T>
using Vector = std::vector<T, NativeStl<T>>;
using String = std::basic_string<char, std::char_traits<char>, NativeStl<char>>;

} // namespace report
} // namespace qel
