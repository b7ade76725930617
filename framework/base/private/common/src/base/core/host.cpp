#include <qel/host.h>

#include "base/core/platform_native.h"

#include <qel/systembase.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qel
{
namespace
{

const struct
{
    const char* name;
    QueryDevice::QueryAnswer answer;
} kAnswerNames[] = {
    {"abort", QueryDevice::Abort}, {"cancel", QueryDevice::Cancel}, {"ignore", QueryDevice::Ignore},
    {"retry", QueryDevice::Retry}, {"ok", QueryDevice::OK},         {"yes", QueryDevice::Yes},
    {"no", QueryDevice::No},
};

const char* AnswerName(u32 answer)
{
    for (const auto& entry : kAnswerNames)
        if (entry.answer == answer)
            return entry.name;
    return "?";
}

// The answer QEL_QUERY_ANSWER asks for, or 0 when it is unset or unknown.
u32 ScriptedAnswer()
{
    char value[16];
    if (!native::GetEnvironmentVariable("QEL_QUERY_ANSWER", value, sizeof value))
        return 0;
    char lower[sizeof value];
    SystemBase::CopyLowerCase(lower, value, sizeof lower);
    for (const auto& entry : kAnswerNames)
        if (std::strcmp(lower, entry.name) == 0)
            return entry.answer;
    return 0;
}

Host g_PlatformHost;
std::atomic<Host*> g_Host{nullptr};

} // namespace

Host::~Host() = default;

QueryDevice::QueryAnswer Host::Ask(u32 choice, const char* caption, const char* text)
{
    const QueryDevice::QueryAnswer fallback = QueryDevice::ExtractDefaultChoice(choice);
    if (const u32 scripted = ScriptedAnswer())
    {
        // Only an answer the question offers; otherwise its default.
        const QueryDevice::QueryAnswer answer = (choice & QueryDevice::ButtonSetMask & scripted)
                                                    ? QueryDevice::QueryAnswer(scripted)
                                                    : fallback;
        char line[256];
        std::snprintf(line, sizeof line, "qel: question \"%s\" answered %s (QEL_QUERY_ANSWER):\n",
                      caption ? caption : "", AnswerName(answer));
        DebugOutput(line);
        DebugOutput(text ? text : "");
        DebugOutput("\n");
        return answer;
    }
    return native::ShowMessageBox(choice, caption, text, fallback);
}

void Host::BreakIntoDebugger()
{
    native::BreakIntoDebugger();
}

void Host::DebugOutput(const char* text)
{
    native::DebugOutput(text);
}

void Host::ExitProcess()
{
    std::abort();
}

Host& Host::Get()
{
    Host* host = g_Host.load(std::memory_order_acquire);
    return host ? *host : g_PlatformHost;
}

Host* Host::Set(Host* host)
{
    Host* previous = g_Host.exchange(host, std::memory_order_acq_rel);
    return previous ? previous : &g_PlatformHost;
}

} // namespace qel
