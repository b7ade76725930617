// Core services on Windows.
#include "base/core/platform_native.h"

#include "base/platform/windows.h"

namespace qel
{
namespace native
{

QueryDevice::QueryAnswer ShowMessageBox(u32 choice, const char* caption, const char* text,
                                        QueryDevice::QueryAnswer fallback)
{
    UINT type;
    switch (choice & QueryDevice::ButtonSetMask)
    {
    case 10:
        type = MB_RETRYCANCEL;
        break;
    case 13:
        type = MB_ABORTRETRYIGNORE;
        break;
    case 16:
        type = MB_OK;
        break;
    case 18:
        type = MB_OKCANCEL;
        break;
    case 96:
        type = MB_YESNO;
        break;
    case 98:
        type = MB_YESNOCANCEL;
        break;
    default:
        return fallback;
    }
    if (choice & 256)
        type |= MB_ICONEXCLAMATION;
    if (choice & 512)
        type |= MB_ICONINFORMATION;
    if (choice & 1024)
        type |= MB_ICONQUESTION;
    if (choice & 2048)
        type |= MB_ICONSTOP;
    const u32 defaultButton = QueryDevice::ExtractDefaultChoiceButton(choice) >> 28;
    if (defaultButton == 2)
        type |= MB_DEFBUTTON2;
    else if (defaultButton == 4)
        type |= MB_DEFBUTTON3;
    type |= (choice & QueryDevice::SystemModal) ? MB_SYSTEMMODAL : MB_TOPMOST;

    switch (MessageBoxA(nullptr, text, caption, type))
    {
    case IDOK:
        return QueryDevice::OK;
    case IDCANCEL:
        return QueryDevice::Cancel;
    case IDABORT:
        return QueryDevice::Abort;
    case IDRETRY:
        return QueryDevice::Retry;
    case IDIGNORE:
        return QueryDevice::Ignore;
    case IDYES:
        return QueryDevice::Yes;
    case IDNO:
        return QueryDevice::No;
    default:
        return fallback;
    }
}

void BreakIntoDebugger()
{
    DebugBreak();
}

void DebugOutput(const char* text)
{
    OutputDebugStringA(text);
}

void SleepMilliseconds(u32 milliseconds)
{
    Sleep(milliseconds);
}

u32 GetCurrentProcessId()
{
    return static_cast<u32>(::GetCurrentProcessId());
}

bool GetEnvironmentVariable(const char* name, char* value, u32 size)
{
    // The process environment itself, not a C runtime's copy of it, so that
    // a variable set after the runtime started is seen.
    DWORD length = GetEnvironmentVariableA(name, value, size);
    return length != 0 && length < size;
}

} // namespace native
} // namespace qel
