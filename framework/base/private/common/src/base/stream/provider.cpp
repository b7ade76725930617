#include <qel/provider.h>

namespace qel
{

Provider::~Provider() = default;

void Provider::Return(void*, void*) {}

void Provider::Return(void*) {}

} // namespace qel
