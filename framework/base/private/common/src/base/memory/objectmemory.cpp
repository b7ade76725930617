#include <qel/allocationoperators.h>

#include <qel/allocator.h>
#include <qel/mem.h>

namespace qel
{

void* ObjectMemory::Allocate(std::size_t size, Allocator* allocator) noexcept
{
    if (allocator == nullptr)
        allocator = Mem::GetGeneralAlloc();
    // Malloc reports a failure itself and yields null.
    return allocator ? allocator->Malloc(static_cast<unsigned int>(size)) : nullptr;
}

void ObjectMemory::Release(void* p) noexcept
{
    if (p != nullptr)
        if (Allocator* owner = Allocator::GetOwner(p))
            owner->Free(p);
}

void* ObjectMemory::AllocateNative(std::size_t size) noexcept
{
    return Allocate(size, Mem::GetNativeAlloc());
}

void ObjectMemory::ReleaseNative(void* p) noexcept
{
    if (p != nullptr)
        if (Allocator* native = Mem::GetNativeAlloc())
            native->Free(p);
}

} // namespace qel
