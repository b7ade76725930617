// A host for tests: answers questions from a script, counts debugger breaks
// and process exits instead of performing them, and records the debugger
// output. It installs itself for its lifetime.
#pragma once

#include <qel/host.h>
#include <qel/textoutputdevice.h>

#include <deque>
#include <string>
#include <vector>

namespace qeltest
{

class ScriptedHost : public qel::Host
{
public:
    struct Question
    {
        qel::u32 choice;
        std::string caption;
        std::string text;
    };

    ScriptedHost();
    ~ScriptedHost() override;

    // Queues the answers of the next questions; an unscripted question gets
    // its default answer.
    void Answer(std::initializer_list<qel::QueryDevice::QueryAnswer> answers);

    qel::QueryDevice::QueryAnswer Ask(qel::u32 choice, const char* caption,
                                      const char* text) override;
    void BreakIntoDebugger() override { ++breaks; }
    void DebugOutput(const char* text) override { output.emplace_back(text); }
    void ExitProcess() override;

    std::vector<Question> questions;
    std::vector<std::string> output;
    int breaks = 0;
    int exits = 0;
    // When set, ExitProcess really ends the process (death tests).
    bool realExit = false;

private:
    std::deque<qel::QueryDevice::QueryAnswer> m_Script;
    qel::Host* m_Previous;
};

// A text output device that keeps what it is given.
class RecordingDevice : public qel::TextOutputDevice
{
public:
    RecordingDevice() : TextOutputDevice(false) {}
    void Write(const char* text) override { texts.emplace_back(text); }
    std::vector<std::string> texts;
};

} // namespace qeltest
