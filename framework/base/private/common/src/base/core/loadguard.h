// The question the load guard asks when a second copy of the library is
// loaded into one process. Platform entry points (DllMain, the POSIX
// load-time constructor) ask it through the host.
#pragma once

#include <qel/host.h>
#include <qel/querydevice.h>

namespace qel
{

// True when the user lets the load go on.
inline bool AskToContinueSecondLoad()
{
    const u32 choice = 96 /* Yes/No */ | 2048 /* stop icon */ | QueryDevice::SystemModal;
    return Host::Get().Ask(choice, "Base Hazard...",
                           "Another instance of Base is already loaded for this process.\n"
                           "This is hazardous and NOT recommended.\n\n"
                           "Do you want to continue?") != QueryDevice::No;
}

} // namespace qel
