// The allocation operators that every class of the library carries, so that
// its objects never come from the C++ runtime's heap but from the library's
// allocators.
//
// QEL_ALLOCATION_OPERATORS, in a class body:
//   new(size), new[](size)                      the General allocator
//   new(size, file, line), new[](...)           the same; file and line unused
//   new(size, allocator), new[](...)            the given allocator
//   new(size, allocator, file, line), ...       the same
//   new(size, place)                            placement
//   every delete                                frees in the allocator that owns
//                                               the address (Allocator::GetOwner);
//                                               an allocator argument is ignored
// A failed new reports "Malloc failed: no more available memory" through the
// allocator and yields null; the operators are noexcept, so a null result
// skips the constructor.
//
// QEL_NATIVE_ALLOCATION_OPERATORS: the plain, file/line and array forms on
// the Native allocator, with every delete freeing there directly (for
// classes that must not depend on the page-based allocators: the allocators
// themselves, the text output devices, the thread manager).
#pragma once

#include <qel/export.h>
#include <qel/types.h>

#include <cstddef>

namespace qel
{

class Allocator;

struct QEL_API ObjectMemory
{
    // `allocator` null means the General allocator.
    static void* Allocate(std::size_t size, Allocator* allocator) noexcept;
    static void Release(void* p) noexcept;
    static void* AllocateNative(std::size_t size) noexcept;
    static void ReleaseNative(void* p) noexcept;
};

} // namespace qel

#define QEL_PLACEMENT_OPERATORS                                                                    \
    static void* operator new(std::size_t, void* place) noexcept                                   \
    {                                                                                              \
        return place;                                                                              \
    }                                                                                              \
    static void operator delete(void*, void*) noexcept {}

#define QEL_ALLOCATION_OPERATORS                                                                   \
    QEL_PLACEMENT_OPERATORS                                                                        \
    static void* operator new(std::size_t size) noexcept                                           \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, nullptr);                                       \
    }                                                                                              \
    static void* operator new[](std::size_t size) noexcept                                         \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, nullptr);                                       \
    }                                                                                              \
    static void* operator new(std::size_t size, const char*, ::qel::u32) noexcept                  \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, nullptr);                                       \
    }                                                                                              \
    static void* operator new[](std::size_t size, const char*, ::qel::u32) noexcept                \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, nullptr);                                       \
    }                                                                                              \
    static void* operator new(std::size_t size, ::qel::Allocator* allocator) noexcept              \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, allocator);                                     \
    }                                                                                              \
    static void* operator new[](std::size_t size, ::qel::Allocator* allocator) noexcept            \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, allocator);                                     \
    }                                                                                              \
    static void* operator new(std::size_t size, ::qel::Allocator* allocator, const char*,          \
                              ::qel::u32) noexcept                                                 \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, allocator);                                     \
    }                                                                                              \
    static void* operator new[](std::size_t size, ::qel::Allocator* allocator, const char*,        \
                                ::qel::u32) noexcept                                               \
    {                                                                                              \
        return ::qel::ObjectMemory::Allocate(size, allocator);                                     \
    }                                                                                              \
    static void operator delete(void* p) noexcept                                                  \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete[](void* p) noexcept                                                \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete(void* p, const char*, ::qel::u32) noexcept                         \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete[](void* p, const char*, ::qel::u32) noexcept                       \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete(void* p, ::qel::Allocator*) noexcept                               \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete[](void* p, ::qel::Allocator*) noexcept                             \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete(void* p, ::qel::Allocator*, const char*, ::qel::u32) noexcept      \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }                                                                                              \
    static void operator delete[](void* p, ::qel::Allocator*, const char*, ::qel::u32) noexcept    \
    {                                                                                              \
        ::qel::ObjectMemory::Release(p);                                                           \
    }

#define QEL_NATIVE_ALLOCATION_OPERATORS                                                            \
    QEL_PLACEMENT_OPERATORS                                                                        \
    static void* operator new(std::size_t size) noexcept                                           \
    {                                                                                              \
        return ::qel::ObjectMemory::AllocateNative(size);                                          \
    }                                                                                              \
    static void* operator new[](std::size_t size) noexcept                                         \
    {                                                                                              \
        return ::qel::ObjectMemory::AllocateNative(size);                                          \
    }                                                                                              \
    static void* operator new(std::size_t size, const char*, ::qel::u32) noexcept                  \
    {                                                                                              \
        return ::qel::ObjectMemory::AllocateNative(size);                                          \
    }                                                                                              \
    static void* operator new[](std::size_t size, const char*, ::qel::u32) noexcept                \
    {                                                                                              \
        return ::qel::ObjectMemory::AllocateNative(size);                                          \
    }                                                                                              \
    static void operator delete(void* p) noexcept                                                  \
    {                                                                                              \
        ::qel::ObjectMemory::ReleaseNative(p);                                                     \
    }                                                                                              \
    static void operator delete[](void* p) noexcept                                                \
    {                                                                                              \
        ::qel::ObjectMemory::ReleaseNative(p);                                                     \
    }                                                                                              \
    static void operator delete(void* p, const char*, ::qel::u32) noexcept                         \
    {                                                                                              \
        ::qel::ObjectMemory::ReleaseNative(p);                                                     \
    }                                                                                              \
    static void operator delete[](void* p, const char*, ::qel::u32) noexcept                       \
    {                                                                                              \
        ::qel::ObjectMemory::ReleaseNative(p);                                                     \
    }
