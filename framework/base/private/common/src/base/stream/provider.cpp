#include <qel/provider.h>

namespace qel
{

Provider::~Provider() = default;

void Provider::Return(void*, void*) {}

void Provider::Return(void*) {}

bool Provider::ReadDirect(u32, void*, u32, u32&)
{
    return false;
}

bool Provider::WriteDirect(u32, const void*, u32, u32&)
{
    return false;
}

} // namespace qel
