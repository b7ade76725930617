#include <qel/version.h>

#define QEL_STRINGIFY2(x) #x
#define QEL_STRINGIFY(x) QEL_STRINGIFY2(x)

namespace qel
{

const char* GetVersionString()
{
    return QEL_STRINGIFY(QEL_BASE_VERSION_MAJOR) "." QEL_STRINGIFY(
        QEL_BASE_VERSION_MINOR) "." QEL_STRINGIFY(QEL_BASE_VERSION_PATCH);
}

const char* GetPlatformName()
{
#if defined(_WIN32)
    return sizeof(void*) == 8 ? "Windows x86-64" : "Windows x86";
#elif defined(__linux__)
    return sizeof(void*) == 8 ? "Linux x86-64" : "Linux x86";
#else
    return sizeof(void*) == 8 ? "POSIX 64-bit" : "POSIX 32-bit";
#endif
}

} // namespace qel
