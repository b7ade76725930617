#include "support/scriptedhost.h"

#include <cstdlib>

namespace qeltest
{

ScriptedHost::ScriptedHost() : m_Previous(qel::Host::Set(this)) {}

ScriptedHost::~ScriptedHost()
{
    qel::Host::Set(m_Previous);
}

void ScriptedHost::Answer(std::initializer_list<qel::QueryDevice::QueryAnswer> answers)
{
    m_Script.insert(m_Script.end(), answers.begin(), answers.end());
}

qel::QueryDevice::QueryAnswer ScriptedHost::Ask(qel::u32 choice, const char* caption,
                                                const char* text)
{
    questions.push_back({choice, caption ? caption : "", text ? text : ""});
    if (m_Script.empty())
        return qel::QueryDevice::ExtractDefaultChoice(choice);
    const qel::QueryDevice::QueryAnswer answer = m_Script.front();
    m_Script.pop_front();
    return answer;
}

void ScriptedHost::ExitProcess()
{
    ++exits;
    if (realExit)
        std::abort();
}

} // namespace qeltest
