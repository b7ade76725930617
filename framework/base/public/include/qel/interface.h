// Root of the library's polymorphic classes.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>

namespace qel
{

// No data; the only virtual operation is the destructor. Construction, copy
// and assignment do nothing.
struct QEL_API Interface
{
    QEL_ALLOCATION_OPERATORS

    Interface() = default;
    Interface(const Interface&) = default;
    Interface& operator=(const Interface&) = default;
    virtual ~Interface();
};

} // namespace qel
