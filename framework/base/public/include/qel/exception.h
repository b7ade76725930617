// The library's exceptions: a fixed text buffer, no allocation.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>

namespace qel
{

class QEL_API Exception
{
public:
    QEL_ALLOCATION_OPERATORS

    enum
    {
        ReasonSize = 4096
    };

    Exception();
    // Copies at most 4095 characters of `reason`; a longer text is cut.
    explicit Exception(const char* reason);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);

    const char* GetReason() const { return m_Reason; }

    static void ShowWarnings(bool show) { ms_showWarnings = show; }
    static bool IsShowingWarnings() { return ms_showWarnings; }

protected:
    char* GetBegin() { return m_Reason; }
    char* GetEnd() { return m_Reason + ReasonSize; }
    static unsigned GetSize() { return ReasonSize; }
    void SetReason(const char* reason);

private:
    char m_Reason[ReasonSize];
    static bool ms_showWarnings;
};

class QEL_API MemoryException : public Exception
{
public:
    MemoryException();
};

} // namespace qel
