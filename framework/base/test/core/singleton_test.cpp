// The singleton pattern: creation once, the exit-time teardown, and access
// after it.
#include "base/core/singleton.h"

#include <qel/querydevice.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

int g_Constructed = 0;
int g_Destroyed = 0;

class Gadget
{
public:
    static Gadget* Get()
    {
        Gadget* instance = ms_SingletonInstance.load();
        return instance ? instance : qel::Singleton<Gadget>::Create(ms_SingletonInstance, "Gadget");
    }
    static Gadget* Fast() { return ms_SingletonInstance.load(); }
    int value = 7;

private:
    template <class T, class Storage>
    friend class qel::Singleton;
    Gadget() { ++g_Constructed; }
    ~Gadget() { ++g_Destroyed; }
    static std::atomic<Gadget*> ms_SingletonInstance;
};

std::atomic<Gadget*> Gadget::ms_SingletonInstance{nullptr};

TEST(Singleton, CreatedOnceOnFirstUse)
{
    EXPECT_EQ(Gadget::Fast(), nullptr);
    Gadget* first = Gadget::Get();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Gadget::Get(), first);
    EXPECT_EQ(Gadget::Fast(), first);
    EXPECT_EQ(g_Constructed, 1);
    EXPECT_EQ(first->value, 7);
}

// Runs after the teardown: registered in the library's exit list before the
// singleton was made (and after the instance manager's lock), so it runs
// between the two teardowns.
void CheckAfterTeardown()
{
    qeltest::ScriptedHost* host = ::new qeltest::ScriptedHost; // not library memory: the allocators
                                                               // are gone // the process is ending
    const bool fastIsNull = Gadget::Fast() == nullptr;
    const bool getIsNull = Gadget::Get() == nullptr;
    const bool boxShown =
        host->questions.size() == 1 && host->questions[0].caption == "FATAL SINGLETON ERROR" &&
        std::strstr(host->questions[0].text.c_str(), "for class Gadget but the instance is NULL") !=
            nullptr;
    std::fprintf(stderr, "destroyed=%d fast-null=%d get-null=%d box=%d constructed=%d\n",
                 g_Destroyed, fastIsNull, getIsNull, boxShown, g_Constructed);
    std::fflush(stderr);
    std::_Exit(0);
}

TEST(SingletonDeathTest, AccessAfterTeardownShowsTheBoxAndYieldsNull)
{
    EXPECT_EXIT(
        {
            qel::InstanceManager::GetSingletonInstance();
            qel::RegisterExitHandler(&CheckAfterTeardown);
            Gadget::Get();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "destroyed=1 fast-null=1 get-null=1 box=1 constructed=1");
}

TEST(SingletonDeathTest, SilentDeviceHidesTheBoxButStillYieldsNull)
{
    EXPECT_EXIT(
        {
            qel::RegisterExitHandler(
                []
                {
                    qeltest::ScriptedHost* host =
                        ::new qeltest::ScriptedHost; // not library memory: the allocators are gone
                    qel::QueryDevice::SetSilent(true);
                    const bool null = Gadget::Get() == nullptr;
                    std::fprintf(stderr, "null=%d asked=%zu\n", null, host->questions.size());
                    std::fflush(stderr);
                    std::_Exit(0);
                });
            Gadget::Get();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "null=1 asked=0");
}

} // namespace
