#include <qel/textoutputdevice.h>

#include <qel/debuggerstream.h>

#include <cstdio>
#include <cstring>

namespace qel
{

TextOutputDevice::TextOutputDevice(bool deleteWhenUnreferenced)
    : m_ReferenceCount(1), m_DeleteWhenUnreferenced(deleteWhenUnreferenced)
{
}

TextOutputDevice::~TextOutputDevice() = default;

void TextOutputDevice::Release()
{
    if (--m_ReferenceCount == 0 && m_DeleteWhenUnreferenced)
        delete this;
}

void TextOutputDeviceNull::Write(const char*) {}

void TextOutputDeviceAnsi::Write(const char* text)
{
    std::printf("%s", text);
}

void TextOutputDeviceDebugger::Write(const char* text)
{
    // The text with its terminating zero: the debugger provider sends its
    // buffer up to the first zero.
    DebuggerStream& stream = DebuggerStream::GetDefaultInstance();
    stream.Write(text, static_cast<u32>(std::strlen(text) + 1));
    stream.Flush();
}

} // namespace qel
