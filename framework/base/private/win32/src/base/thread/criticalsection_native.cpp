// CriticalSection on Windows: the system's CRITICAL_SECTION, whose
// uncontended path stays in user space.
#include <qel/criticalsection.h>

#include "base/platform/windows.h"

#include <new>

namespace qel
{
namespace
{

static_assert(sizeof(CRITICAL_SECTION) <= 40 && alignof(CRITICAL_SECTION) <= 8,
              "CriticalSection storage too small");

CRITICAL_SECTION* Get(unsigned char* storage)
{
    return reinterpret_cast<CRITICAL_SECTION*>(storage);
}

} // namespace

CriticalSection::CriticalSection()
{
    InitializeCriticalSection(Get(m_Storage));
}

CriticalSection::~CriticalSection()
{
    DeleteCriticalSection(Get(m_Storage));
}

void CriticalSection::Enter()
{
    EnterCriticalSection(Get(m_Storage));
}

bool CriticalSection::TryEnter()
{
    return TryEnterCriticalSection(Get(m_Storage)) != FALSE;
}

void CriticalSection::Leave()
{
    LeaveCriticalSection(Get(m_Storage));
}

} // namespace qel
