#include <qel/refcounted.h>

#include "base/disk/generalblock.h"

namespace qel
{

RefCounted::~RefCounted() = default;

void RefCounted::Release()
{
    // The last reference orders after every other holder's use.
    if (m_RefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

void* RefCounted::operator new(std::size_t size) noexcept
{
    return AllocateGeneralBlock(size);
}

void RefCounted::operator delete(void* p) noexcept
{
    FreeGeneralBlock(p);
}

} // namespace qel
