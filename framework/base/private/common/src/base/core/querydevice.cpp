#include <qel/querydevice.h>

#include <qel/host.h>

namespace qel
{

bool QueryDevice::ms_IsSilent = false;

namespace
{

// The six button sets, each with its buttons in order.
struct ButtonSet
{
    u32 value;
    QueryDevice::QueryAnswer buttons[3];
    u32 count;
};

const ButtonSet kButtonSets[] = {
    {10, {QueryDevice::Retry, QueryDevice::Cancel}, 2},
    {13, {QueryDevice::Abort, QueryDevice::Retry, QueryDevice::Ignore}, 3},
    {16, {QueryDevice::OK}, 1},
    {18, {QueryDevice::OK, QueryDevice::Cancel}, 2},
    {96, {QueryDevice::Yes, QueryDevice::No}, 2},
    {98, {QueryDevice::Yes, QueryDevice::No, QueryDevice::Cancel}, 3},
};

} // namespace

QueryDevice::QueryAnswer QueryDevice::QueryUser(u32 choice, const char* caption, const char* text)
{
    if (ms_IsSilent)
        return ExtractDefaultChoice(choice);
    return Host::Get().Ask(choice, caption, text);
}

QueryDevice::QueryAnswer QueryDevice::ExtractDefaultChoice(u32 choice)
{
    // The index is the base-2 logarithm of the one-hot default, rounded up.
    const u32 nibble = ExtractDefaultChoiceButton(choice) >> 28;
    u32 index = 0;
    while ((1u << index) < nibble)
        ++index;

    for (const ButtonSet& set : kButtonSets)
    {
        if (set.value != (choice & ButtonSetMask))
            continue;
        if (index < set.count)
            return set.buttons[index];
        Host::Get().BreakIntoDebugger(); // a default past the last button
        return set.buttons[0];
    }
    Host::Get().BreakIntoDebugger(); // not one of the six button sets
    return OK;
}

} // namespace qel
