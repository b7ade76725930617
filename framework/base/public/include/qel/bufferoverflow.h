// Thrown by the buffer providers when a stream asks for a position at or
// past the end of their buffer.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>

namespace qel
{

class QEL_API BufferOverflow
{
public:
    QEL_ALLOCATION_OPERATORS

private:
};

} // namespace qel
