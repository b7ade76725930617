#include <qel/base.h>

#include <cstdio>

int main()
{
    // Uses data exported by the library, not only inline code.
    if (qel::SystemBase::ms_LowerCase['Q'] != 'q' ||
        !qel::SystemBase::Is('7', qel::SystemBase::Digit))
        return 1;
    std::printf("consumer ok: qel %s on %s\n", qel::GetVersionString(), qel::GetPlatformName());
    return 0;
}
