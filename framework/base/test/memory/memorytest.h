// Helpers of the memory tests: capturing a dump and spelling addresses as
// the dumps and messages do.
#pragma once

#include <qel/outputbufferstream.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace qeltest
{

// Collects what a dump writes into a buffer of its own.
class DumpCapture
{
public:
    DumpCapture()
        : m_Buffer(1 << 16), m_Stream(&m_Buffer[0], &m_Buffer[0], &m_Buffer[0] + m_Buffer.size())
    {
    }

    qel::OutputStream* Stream() { return &m_Stream; }

    // The text written so far, cut at each CR LF.
    std::vector<std::string> Lines()
    {
        m_Stream.Flush();
        const std::string text(&m_Buffer[0], m_Stream.GetWrittenSize());
        std::vector<std::string> lines;
        for (std::size_t begin = 0; begin < text.size();)
        {
            std::size_t end = text.find("\r\n", begin);
            if (end == std::string::npos)
                end = text.size();
            lines.push_back(text.substr(begin, end - begin));
            begin = end + 2;
        }
        return lines;
    }

private:
    std::vector<char> m_Buffer;
    qel::OutputBufferStream m_Stream;
};

inline std::string Hex(const void* p)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%08" PRIXPTR, reinterpret_cast<std::uintptr_t>(p));
    return text;
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments)
{
    char text[512];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

} // namespace qeltest
