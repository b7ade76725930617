// <windows.h> for the Win32 platform layer, without the macros that would
// rename the library's own functions (FormatMessage, DeleteFile, ...).
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#undef FormatMessage
#undef GetClassName
#undef DeleteFile
#undef ReplaceFile
#undef CreateDirectory
#undef RemoveDirectory
#undef SetCurrentDirectory
#undef GetCurrentDirectory
#undef CreateMutex
#undef CreateEvent
#undef CreateSemaphore
#undef MessageBox
#undef GetModuleFileName
#undef CreateFile
#undef FindFirstFile
#undef FindNextFile
#undef GetDriveType
#undef LoadLibrary
#undef OutputDebugString
#undef Yield
#undef GetEnvironmentVariable
