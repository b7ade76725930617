// The error manager: report texts, the user's answers, don't-show-again
// flags, silent mode, categories and re-entrance.
#include <qel/errormanager.h>
#include <qel/report.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using qel::ErrorManager;
using qel::QueryDevice;
using qeltest::RecordingDevice;
using qeltest::ScriptedHost;

// A category of its own with a recording device, removed after each test.
class ErrorManagerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        category = manager.RegisterCategory(ErrorManager::BaseCategory, "Test");
        manager.RegisterOutputDevice(category, &device);
    }
    void TearDown() override
    {
        manager.UnRegisterCategory(category);
        QueryDevice::SetSilent(false);
    }

    ErrorManager& manager = ErrorManager::GetSingletonInstance();
    ScriptedHost host;
    RecordingDevice device;
    qel::u32 category = 0;
    ErrorManager::QueryUserFlag flag = 0;
};

TEST_F(ErrorManagerTest, TextsAndQuestionsAreExact)
{
    host.Answer({QueryDevice::Retry, QueryDevice::Ignore, QueryDevice::No, QueryDevice::Yes});
    manager.DisplayAssert(flag, ErrorManager::UsageAssert, category, "x > 0", "a/b.cpp", 42);
    manager.DisplayWarning(category, flag, "Low on disk", "w.cpp", 7);
    manager.DisplayError(category, "Disk gone", "e.cpp", 9);
    const std::string assertText = "\nAssert Failed\n\nCondition Failed: x > 0\nAssert Type: "
                                   "Usage Assert\n\nFilename: a/b.cpp\nLineNo: 42\n\nPress "
                                   "'Retry' to debug\n";
    EXPECT_EQ(
        device.texts,
        (std::vector<std::string>{
            assertText, "Low on disk\n\nFilename: w.cpp\nLineNo: 7\n\nPress 'Retry' to debug\n",
            "\nFatal Error\n\nMessage: Disk gone\n\nFilename: e.cpp\nLineNo: 9\n\nDo you "
            "want to debug ?\n"}));
    ASSERT_EQ(host.questions.size(), 4u);
    EXPECT_EQ(host.questions[0].choice, 0x4000010Du);
    EXPECT_EQ(host.questions[0].caption, "Assert Failed");
    EXPECT_EQ(host.questions[0].text, assertText);
    EXPECT_EQ(host.questions[1].caption, "Warning");
    EXPECT_EQ(host.questions[2].caption, "Warning");
    EXPECT_EQ(host.questions[2].text,
              "Do you want to see again any new occurence of this warning ?");
    EXPECT_EQ(host.questions[3].caption, "Error");
    EXPECT_EQ(host.questions[3].choice, 0x20000860u);

    // The assert's own second question, and null messages.
    host.Answer({QueryDevice::Ignore, QueryDevice::No, QueryDevice::Yes});
    ErrorManager::QueryUserFlag other = 0;
    manager.DisplayAssert(other, ErrorManager::InternalAssert, category, "c", "f", 1);
    EXPECT_EQ(host.questions.at(5).text,
              "Do you want to see again any new occurences of this assert ?");
    EXPECT_EQ(host.questions.at(5).choice, 0x10000060u);
    manager.DisplayWarning(category, flag, nullptr, "w.cpp", 8); // flagged: not asked
    EXPECT_EQ(device.texts.at(4).rfind("\n\nFilename: w.cpp", 0), 0u);
    manager.DisplayError(category, nullptr, "e.cpp", 9);
    EXPECT_NE(device.texts.at(5).find("Message: None"), std::string::npos);
    EXPECT_EQ(host.questions.size(), 7u);

    const std::string longMessage(3000, 'w'); // cut below the buffer size
    manager.DisplayWarning(category, flag, longMessage.c_str(), "w.cpp", 7);
    EXPECT_EQ(device.texts.back(), std::string(ErrorManager::MessageSize - 1, 'w'));
}

// Each report's answers decide what it returns, the don't-show-again flag,
// and the exit or break; once flagged, or silent, a report is written to
// the device and asks nothing (the report site decides to exit, not the
// manager).
TEST_F(ErrorManagerTest, AnswersDecideTheResultTheFlagAndTheExit)
{
    enum Kind
    {
        Assert,
        Warning,
        Error
    };
    using Q = QueryDevice;
    // Each answer scripted is one question asked.
    const struct
    {
        Kind kind;
        bool silent;
        ErrorManager::QueryUserFlag flagBefore;
        std::vector<QueryDevice::QueryAnswer> answers;
        QueryDevice::QueryAnswer result;
        ErrorManager::QueryUserFlag flag;
        int exits, breaks;
    } cases[] = {
        {Assert, false, 0, {Q::Ignore, Q::No}, Q::Ignore, 1, 0, 0},
        {Assert, false, 0, {Q::Ignore, Q::Yes}, Q::Ignore, 0, 0, 0},
        {Assert, false, 1, {}, Q::Ignore, 1, 0, 0},
        {Assert, false, 0, {Q::Retry}, Q::Retry, 0, 0, 0},
        {Assert, false, 0, {Q::Abort}, Q::Abort, 0, 1, 0},
        {Assert, false, 0, {Q::OK}, Q::OK, 0, 0, 1}, // not offered by the box: a programming error
        // unlike an assert's, a warning's second answer is its result
        {Warning, false, 0, {Q::Ignore, Q::No}, Q::No, 1, 0, 0},
        {Warning, false, 0, {Q::Ignore, Q::Yes}, Q::Yes, 0, 0, 0},
        {Error, false, 0, {Q::Yes}, Q::Yes, 0, 0, 0},
        {Error, false, 0, {Q::No}, Q::No, 0, 1, 0},
        {Assert, true, 0, {}, Q::Ignore, 0, 0, 0},
        {Error, true, 0, {}, Q::No, 0, 0, 0},
    };
    for (const auto& c : cases)
    {
        const std::size_t row = std::size_t(&c - cases);
        ScriptedHost rowHost;
        device.texts.clear();
        QueryDevice::SetSilent(c.silent);
        for (QueryDevice::QueryAnswer answer : c.answers)
            rowHost.Answer({answer});
        ErrorManager::QueryUserFlag rowFlag = c.flagBefore;
        const QueryDevice::QueryAnswer result =
            c.kind == Assert    ? manager.DisplayAssert(rowFlag, ErrorManager::InternalAssert,
                                                        category, "c", "f", 1)
            : c.kind == Warning ? manager.DisplayWarning(category, rowFlag, "w", "f", 1)
                                : manager.DisplayError(category, "e", "f", 1);
        QueryDevice::SetSilent(false);
        EXPECT_EQ(result, c.result) << row;
        EXPECT_EQ(rowFlag, c.flag) << row;
        EXPECT_EQ(rowHost.questions.size(), c.answers.size()) << row;
        EXPECT_EQ(rowHost.exits, c.exits) << row;
        EXPECT_EQ(rowHost.breaks, c.breaks) << row;
        ASSERT_EQ(device.texts.size(), 1u) << row;
        EXPECT_EQ(device.texts[0].find("Internal Assert") != std::string::npos, c.kind == Assert)
            << row;
    }
}

TEST_F(ErrorManagerTest, ReportRaisedWhileShowingBreaksAndAnswersIgnore)
{
    struct ReentrantDevice : qel::TextOutputDevice
    {
        ReentrantDevice() : TextOutputDevice(false) {}
        void Write(const char*) override
        {
            ErrorManager::QueryUserFlag innerFlag = 0;
            answers.push_back(ErrorManager::GetSingletonInstance().DisplayAssert(
                innerFlag, ErrorManager::InternalAssert, 1, "inner", "f", 2));
            answers.push_back(
                ErrorManager::GetSingletonInstance().DisplayError(1, "inner", "f", 3));
        }
        std::vector<QueryDevice::QueryAnswer> answers;
    } reentrant;
    manager.RegisterOutputDevice(category, &reentrant);

    host.Answer({QueryDevice::Retry});
    EXPECT_EQ(manager.DisplayAssert(flag, ErrorManager::InternalAssert, category, "outer", "f", 1),
              QueryDevice::Retry);
    EXPECT_EQ(reentrant.answers,
              (std::vector<QueryDevice::QueryAnswer>{QueryDevice::Ignore, QueryDevice::Ignore}));
    EXPECT_EQ(host.breaks, 2);
    EXPECT_EQ(host.questions.size(), 1u); // only the outer report asked
    manager.RegisterOutputDevice(category, &device);
}

TEST_F(ErrorManagerTest, FormatMessageSpecialCases)
{
    char* buffer = manager.FormatMessage("%s-%d", "abc", 12);
    EXPECT_STREQ(buffer, "abc-12");
    // Its own buffer as the format is left as it stands.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    EXPECT_EQ(manager.FormatMessage(buffer), buffer);
#pragma GCC diagnostic pop
    EXPECT_STREQ(buffer, "abc-12");
    EXPECT_STREQ(manager.FormatMessage(nullptr), "");
    const std::string huge(5000, 'h');
    EXPECT_EQ(std::string(manager.FormatMessage("%s", huge.c_str())).size(), 2047u);
}

TEST_F(ErrorManagerTest, ReportMacrosActOnTheAnswerAtTheSite)
{
    host.Answer({QueryDevice::Retry});
    QEL_ASSERT(category, 1 + 1 == 3);
    EXPECT_EQ(host.breaks, 1);
    EXPECT_NE(device.texts.at(0).find("Condition Failed: 1 + 1 == 3"), std::string::npos);
    EXPECT_NE(device.texts.at(0).find("framework/base/test/core/errormanager_test.cpp"),
              std::string::npos);

    host.Answer({QueryDevice::Retry});
    QEL_WARNING(category, "%d widgets", 3);
    EXPECT_EQ(host.breaks, 2);
    EXPECT_EQ(device.texts.at(1).rfind("3 widgets\n\nFilename: ", 0), 0u);

    host.Answer({QueryDevice::Cancel}); // neither Yes nor No: break, then the site exits
    QEL_FATAL_ERROR(category, "bad %s", "state");
    EXPECT_EQ(host.breaks, 3);
    EXPECT_EQ(host.exits, 1);

    QEL_TRACE(category, "t%d", 1);
    EXPECT_EQ(device.texts.back(), "t1");
}

TEST_F(ErrorManagerTest, AssertSiteFlagSuppressesOnlyThatSite)
{
    for (int i = 0; i < 2; ++i)
    {
        host.Answer({QueryDevice::Ignore, QueryDevice::No});
        QEL_ASSERT(category, i < 0);
    }
    EXPECT_EQ(host.questions.size(), 2u); // the second pass was not asked
    host.Answer({QueryDevice::Ignore, QueryDevice::Yes});
    QEL_ASSERT(category, false); // another site still asks
    EXPECT_EQ(host.questions.size(), 4u);
}

TEST(ErrorManagerCategories, BuiltInCategoriesAndMemoryStyleRegistration)
{
    ErrorManager& manager = ErrorManager::GetSingletonInstance();
    const qel::u32 before = manager.GetNumberOfCategories();
    EXPECT_GE(before, 3u);
    const qel::u32 id = qel::MEM_InitErrorCategory(ErrorManager::BaseCategory, "Pool");
    EXPECT_EQ(manager.GetNumberOfUserFlags(id), 3u);
    EXPECT_TRUE(manager.GetUserFlag(id, 0x1));
    EXPECT_TRUE(manager.GetSystemFlag(id, 0x8));
    manager.SetSystemFlag(id, 0x8, false);
    EXPECT_FALSE(manager.GetSystemFlag(id, 0x8));
    EXPECT_TRUE(manager.GetSystemFlag(id, 0x1));
    manager.UnRegisterCategory(id);
    EXPECT_EQ(manager.GetNumberOfCategories(), before);
}

TEST(ErrorManagerCategories, SixtyFifthCategoryGetsDefaultAndCountStays)
{
    ErrorManager& manager = ErrorManager::GetSingletonInstance();
    std::vector<qel::u32> taken;
    while (manager.GetNumberOfCategories() < ErrorManager::MaxCategories)
        taken.push_back(manager.RegisterCategory(ErrorManager::BaseCategory, "Filler"));
    EXPECT_EQ(manager.RegisterCategory(ErrorManager::BaseCategory, "One too many"),
              qel::u32(ErrorManager::DefaultCategory));
    EXPECT_EQ(manager.GetNumberOfCategories(), qel::u32(ErrorManager::MaxCategories));
    for (auto it = taken.rbegin(); it != taken.rend(); ++it)
        manager.UnRegisterCategory(*it);
}

// A freed slot below the count has no device: silent reports under it write
// nothing. An id not below the count is reported under the default category.
TEST(ErrorManagerCategories, FreedSlotsWriteNothingAndIdsPastTheCountGoToDefault)
{
    ErrorManager& manager = ErrorManager::GetSingletonInstance();
    ScriptedHost host;
    RecordingDevice defaultDevice, removed;
    manager.RegisterOutputDevice(ErrorManager::DefaultCategory, &defaultDevice);
    const qel::u32 freed = manager.RegisterCategory(ErrorManager::BaseCategory, "Freed");
    const qel::u32 above = manager.RegisterCategory(ErrorManager::BaseCategory, "Above");
    manager.UnRegisterCategory(freed);

    QueryDevice::SetSilent(true);
    ErrorManager::QueryUserFlag flag = 0;
    EXPECT_EQ(manager.DisplayError(freed, "m", "f", 1), QueryDevice::No);
    EXPECT_EQ(manager.DisplayAssert(flag, ErrorManager::InternalAssert, freed, "c", "f", 1),
              QueryDevice::Ignore);
    QueryDevice::SetSilent(false);
    EXPECT_TRUE(defaultDevice.texts.empty());
    EXPECT_TRUE(host.questions.empty());

    // Register until the newest category is the last slot below the count
    // (like id 5 of 6), then remove it: its id is now out of range.
    std::vector<qel::u32> taken{above};
    do
        taken.push_back(manager.RegisterCategory(ErrorManager::BaseCategory, "Last"));
    while (taken.back() != manager.GetNumberOfCategories() - 1);
    const qel::u32 last = taken.back();
    manager.RegisterOutputDevice(last, &removed);
    manager.UnRegisterCategory(last);
    taken.pop_back();
    manager.DisplayTrace(last, "to default");
    EXPECT_EQ(defaultDevice.texts, std::vector<std::string>{"to default"});
    EXPECT_TRUE(removed.texts.empty());

    for (auto it = taken.rbegin(); it != taken.rend(); ++it)
        manager.UnRegisterCategory(*it);
    manager.RegisterOutputDevice(ErrorManager::DefaultCategory, manager.GetDefaultDevice());
}

using ErrorManagerDeathTest = ErrorManagerTest;

TEST_F(ErrorManagerDeathTest, AbortAnswerAndUnansweredFatalErrorEndTheProcess)
{
    EXPECT_DEATH(
        {
            host.realExit = true;
            host.Answer({QueryDevice::Abort});
            QEL_ASSERT(category, false);
        },
        "");
    EXPECT_DEATH(
        {
            host.realExit = true;
            host.Answer({QueryDevice::No});
            QEL_FATAL_ERROR(category, "fatal");
        },
        "");
}

} // namespace
