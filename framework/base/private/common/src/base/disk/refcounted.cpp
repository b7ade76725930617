#include <qel/refcounted.h>

namespace qel
{

RefCounted::~RefCounted() = default;

void RefCounted::Release()
{
    // The last reference orders after every other holder's use.
    if (m_RefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

} // namespace qel
