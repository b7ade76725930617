// Library version.
#pragma once

#include <qel/export.h>

#define QEL_BASE_VERSION_MAJOR 0
#define QEL_BASE_VERSION_MINOR 1
#define QEL_BASE_VERSION_PATCH 0

namespace qel
{

// "major.minor.patch" of the library actually loaded.
QEL_API const char* GetVersionString();

// The platform the library was built for, e.g. "Linux x86-64".
QEL_API const char* GetPlatformName();

} // namespace qel
