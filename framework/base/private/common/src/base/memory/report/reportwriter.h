// The report's HTML page from what the dumps held.
#pragma once

#include "base/memory/report/reportmodel.h"

namespace qel
{

class OutputStream;

namespace report
{

// Writes the whole page to `out`; `title` heads it. Throws std::bad_alloc
// when the Native allocator runs out.
void WriteReport(const Model& model, OutputStream& out, const char* title);

} // namespace report
} // namespace qel
