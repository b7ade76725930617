// What every fuzz target shares: a host that answers every question with its
// default and never ends the process, so that a report is an outcome and not
// a crash, a reader of the input's bytes, and scratch names of the process's
// own.
#pragma once

#include <qel/host.h>
#include <qel/querydevice.h>
#include <qel/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace qelfuzz
{

class QuietHost : public qel::Host
{
public:
    qel::QueryDevice::QueryAnswer Ask(qel::u32 choice, const char*, const char*) override
    {
        ++questions;
        return qel::QueryDevice::ExtractDefaultChoice(choice);
    }
    void BreakIntoDebugger() override {}
    void DebugOutput(const char*) override {}
    void ExitProcess() override { ++exits; }

    // Installs one host for the whole run.
    static QuietHost& Install()
    {
        static QuietHost host;
        static const bool installed = (qel::Host::Set(&host), true);
        (void)installed;
        return host;
    }

    unsigned questions = 0;
    unsigned exits = 0;
};

// Reads the input front to back; past its end every read gives 0.
class Bytes
{
public:
    Bytes(const std::uint8_t* data, std::size_t size) : m_Data(data), m_Size(size) {}

    bool Empty() const { return m_Position >= m_Size; }
    std::uint8_t Byte() { return m_Position < m_Size ? m_Data[m_Position++] : 0; }
    std::uint32_t Word()
    {
        const std::uint32_t low = Byte();
        return low | std::uint32_t(Byte()) << 8;
    }
    // Up to `count` bytes as a text (no zero inside), stopping after a '\n'.
    std::size_t Line(char* out, std::size_t capacity)
    {
        std::size_t length = 0;
        while (!Empty() && length + 1 < capacity)
        {
            const char c = char(Byte());
            if (c == '\n')
                break;
            if (c != '\0')
                out[length++] = c;
        }
        out[length] = '\0';
        return length;
    }

private:
    const std::uint8_t* m_Data;
    std::size_t m_Size;
    std::size_t m_Position = 0;
};

// A path in the temporary folder named after `name` and this process, so
// that targets run side by side (libFuzzer's -jobs, or a long run beside
// CI's) never write each other's scratch files.
inline std::string ScratchPath(const char* name)
{
    return (std::filesystem::temp_directory_path() /
            (std::string(name) + "-" + std::to_string(::getpid())))
        .string();
}

} // namespace qelfuzz
