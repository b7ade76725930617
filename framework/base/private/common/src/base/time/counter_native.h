// The platform's high-resolution counter, one implementation per platform
// (private/win32, private/posix). Its frequency never changes while the
// process runs.
#pragma once

#include <qel/types.h>

namespace qel
{
namespace native
{

u64 ReadCounter();
// Ticks per second.
u64 ReadCounterFrequency();

} // namespace native
} // namespace qel
