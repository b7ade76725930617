#include <qel/provider.h>

namespace qel
{

Provider::~Provider() = default;

void Provider::Return(void*, void*) {}

void Provider::Return(void*) {}

bool Provider::ReadDirect(u64, void*, u32, u32&)
{
    return false;
}

bool Provider::WriteDirect(u64, const void*, u32, u32&)
{
    return false;
}

} // namespace qel
