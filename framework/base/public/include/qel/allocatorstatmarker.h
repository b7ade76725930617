// A position in an allocator's history of allocations. Two markers bound the
// range that a statistics dump covers; FillStatMarker stores the current one.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API AllocatorStatMarker
{
public:
    QEL_ALLOCATION_OPERATORS

    AllocatorStatMarker() : m_Position(0) {}
    explicit AllocatorStatMarker(u32 position) : m_Position(position) {}

    u32 GetPosition() const { return m_Position; }
    void SetPosition(u32 position) { m_Position = position; }

private:
    u32 m_Position;
};

} // namespace qel
