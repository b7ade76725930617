// Text output devices: reference counting and the debugger device's pieces.
#include <qel/debuggerstream.h>
#include <qel/textoutputdevice.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

struct CountedDevice : qel::TextOutputDevice
{
    explicit CountedDevice(bool deleteWhenUnreferenced, int& destroyed)
        : TextOutputDevice(deleteWhenUnreferenced), m_Destroyed(destroyed)
    {
    }
    ~CountedDevice() override { ++m_Destroyed; }
    void Write(const char*) override {}
    int& m_Destroyed;
};

TEST(TextOutputDevice, LastReleaseDeletesOnlyWhenAskedTo)
{
    int destroyed = 0;
    CountedDevice kept(false, destroyed);
    kept.Reserve();
    kept.Release();
    kept.Release();
    EXPECT_EQ(kept.GetReferenceCount(), 0u);
    EXPECT_EQ(destroyed, 0);

    auto* owned = new CountedDevice(true, destroyed);
    owned->Reserve();
    owned->Release();
    EXPECT_EQ(destroyed, 0);
    owned->Release();
    EXPECT_EQ(destroyed, 1);
}

TEST(TextOutputDevice, AnsiPrintsTheTextLiterally)
{
    qel::TextOutputDeviceAnsi device(false);
    ::testing::internal::CaptureStdout();
    device.Write("100%d done %s");
    std::fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "100%d done %s");
}

TEST(TextOutputDevice, DebuggerDeviceSendsLongTextsInPiecesOf1023)
{
    qeltest::ScriptedHost host;
    qel::TextOutputDeviceDebugger device(false);
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += char('a' + i % 26);
    device.Write(text.c_str());

    ASSERT_EQ(host.output.size(), 3u);
    EXPECT_EQ(host.output[0], text.substr(0, 1023));
    EXPECT_EQ(host.output[1], text.substr(1023, 1023));
    EXPECT_EQ(host.output[2], text.substr(2046));
    EXPECT_FALSE(qel::DebuggerStream::GetDefaultInstance().HasPendingBlock());

    device.Write("short");
    ASSERT_EQ(host.output.size(), 4u);
    EXPECT_EQ(host.output[3], "short");
}

} // namespace
