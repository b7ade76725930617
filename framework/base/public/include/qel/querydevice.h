// Questions put to the user: the message boxes of asserts, warnings and
// fatal errors.
//
// A question is described by a choice word:
//   bits 0-7    the button set, the OR of the answers it offers: 10 Retry/Cancel,
//               13 Abort/Retry/Ignore, 16 OK, 18 OK/Cancel, 96 Yes/No,
//               98 Yes/No/Cancel
//   bits 8-11   the icon: 256 exclamation, 512 information, 1024 question,
//               2048 stop
//   bits 28-31  the default button, one-hot: 1 (or 0) first, 2 second, 4 third
// The answer comes from the installed Host (qel/host.h): on Windows a message
// box, on POSIX the default answer.
#pragma once

#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API QueryDevice
{
public:
    enum QueryAnswer
    {
        Abort = 1,
        Cancel = 2,
        Ignore = 4,
        Retry = 8,
        OK = 16,
        Yes = 32,
        No = 64,
    };

    enum ChoiceBits : u32
    {
        ButtonSetMask = 0x000000FFu,
        IconMask = 0x00000F00u,
        DefaultButtonMask = 0xF0000000u,
        // Not part of the original choice words: asks the platform to show
        // the box above every window of the system (the load guard's box).
        SystemModal = 0x01000000u,
    };

    // Returns the default answer without asking when the device is silent;
    // otherwise asks the host.
    static QueryAnswer QueryUser(u32 choice, const char* caption, const char* text);

    // The answer of the choice's default button. A button set that does not
    // exist, or a default past its last button, is a programming error: it
    // breaks into the debugger and answers with the first button (OK for an
    // unknown set).
    static QueryAnswer ExtractDefaultChoice(u32 choice);
    static u32 ExtractDefaultChoiceButton(u32 choice) { return choice & DefaultButtonMask; }

    static bool IsSilent() { return ms_IsSilent; }
    static void SetSilent(bool silent) { ms_IsSilent = silent; }

private:
    static bool ms_IsSilent;
};

} // namespace qel
