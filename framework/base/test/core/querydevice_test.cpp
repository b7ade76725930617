// Default answers of the choice words, silent mode and the host seam.
#include <qel/host.h>
#include <qel/querydevice.h>

#include "support/environment.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

namespace
{

using qel::QueryDevice;
using qeltest::ScriptedHost;

// The default of a choice word past its last button, or of an unknown set of
// buttons, is a programming error that breaks.
TEST(QueryDevice, DefaultAnswerOfTheLibrarysChoiceWords)
{
    const struct
    {
        qel::u32 choice;
        QueryDevice::QueryAnswer answer;
        bool breaks;
    } cases[] = {
        {0x4000010D, QueryDevice::Ignore, false}, {0x20000860, QueryDevice::No, false},
        {0x10000060, QueryDevice::Yes, false},    {16, QueryDevice::OK, false},
        {0x40000060, QueryDevice::Yes, true}, // the 3rd of two buttons
        {0x20000062, QueryDevice::No, false},     {17, QueryDevice::OK, true}, // no such set
    };
    for (const auto& c : cases)
    {
        ScriptedHost host;
        EXPECT_EQ(QueryDevice::ExtractDefaultChoice(c.choice), c.answer) << std::hex << c.choice;
        EXPECT_EQ(host.breaks, int(c.breaks)) << std::hex << c.choice;
    }
    EXPECT_EQ(QueryDevice::ExtractDefaultChoiceButton(0x4000010D), 0x40000000u);
}

TEST(QueryDevice, SilentDeviceAnswersTheDefaultWithoutAsking)
{
    ScriptedHost host;
    host.Answer({QueryDevice::Retry});
    QueryDevice::SetSilent(true);
    EXPECT_EQ(QueryDevice::QueryUser(0x4000010D, "c", "t"), QueryDevice::Ignore);
    QueryDevice::SetSilent(false);
    EXPECT_TRUE(host.questions.empty());
    EXPECT_EQ(QueryDevice::QueryUser(0x4000010D, "c", "t"), QueryDevice::Retry);
    EXPECT_EQ(host.questions.size(), 1u);
}

TEST(Host, EnvironmentAnswerIsUsedWhenTheQuestionOffersIt)
{
    qeltest::SetEnvironment("QEL_QUERY_ANSWER", "No");
    qel::Host& platform = qel::Host::Get();
    EXPECT_EQ(platform.Ask(0x10000060, "c", "t"), QueryDevice::No);
    EXPECT_EQ(platform.Ask(16, "c", "t"), QueryDevice::OK); // no No button: the default
    qeltest::SetEnvironment("QEL_QUERY_ANSWER", "retry");
    EXPECT_EQ(platform.Ask(0x4000010D, "c", "t"), QueryDevice::Retry);
    qeltest::SetEnvironment("QEL_QUERY_ANSWER", nullptr);
}

TEST(Host, SetReturnsThePreviousHostAndNullRestoresThePlatforms)
{
    qel::Host& platform = qel::Host::Get();
    {
        ScriptedHost host;
        EXPECT_EQ(&qel::Host::Get(), &host);
        {
            ScriptedHost inner;
            EXPECT_EQ(&qel::Host::Get(), &inner);
        }
        EXPECT_EQ(&qel::Host::Get(), &host);
    }
    EXPECT_EQ(&qel::Host::Get(), &platform);
}

} // namespace
