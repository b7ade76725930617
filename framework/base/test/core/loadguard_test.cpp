// Loading a second copy of the library into the process asks the user
// whether to go on. The copy is the library's file under another name, and
// the answer comes from QEL_QUERY_ANSWER, the only way to answer a question
// asked before any code could install a host.
#include <qel/version.h>

#include "support/environment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
// Two copies of one library in a process are exactly the one-definition
// violation AddressSanitizer reports; here they are the point of the test.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options()
{
    return "detect_odr_violation=0";
}
#endif

namespace
{

const char kHazardText[] = "Another instance of Base is already loaded for this process.\n"
                           "This is hazardous and NOT recommended.\n\n"
                           "Do you want to continue?";

class LoadGuard : public ::testing::Test
{
protected:
    void SetUp() override
    {
#if defined(QEL_BASE_STATIC)
        GTEST_SKIP() << "a static library has no load guard";
#endif
        const std::string library =
            qeltest::ModulePathOf(reinterpret_cast<const void*>(&qel::GetVersionString));
        ASSERT_FALSE(library.empty());
        // Windows looks for the copy's dependencies beside it: keep it in
        // the library's own folder there.
#if defined(_WIN32)
        copy = std::filesystem::path(library).parent_path().string() + "\\qelbase_copy.dll";
#else
        copy = folder.Path() + "libqelbase_copy.so";
#endif
        std::filesystem::copy_file(library, copy,
                                   std::filesystem::copy_options::overwrite_existing);
    }
    void TearDown() override
    {
        qeltest::SetEnvironment("QEL_QUERY_ANSWER", nullptr);
        std::error_code ignored;
        std::filesystem::remove(copy, ignored);
    }

    qeltest::TemporaryFolder folder;
    std::string copy;
};

#if defined(_WIN32)

TEST_F(LoadGuard, AnswerNoRefusesTheSecondLoadAndYesLetsItGoOn)
{
    qeltest::SetEnvironment("QEL_QUERY_ANSWER", "no");
    EXPECT_EQ(LoadLibraryA(copy.c_str()), nullptr);

    qeltest::SetEnvironment("QEL_QUERY_ANSWER", "yes");
    HMODULE second = LoadLibraryA(copy.c_str());
    ASSERT_NE(second, nullptr);
    FreeLibrary(second);
}

#else

// The question is asked and the load goes on either way: a "no" is answered
// with a word that it cannot be refused.
TEST_F(LoadGuard, SecondLoadAsksAndSaysItCannotBeRefused)
{
    for (const char* answer : {"no", "yes"})
    {
        SCOPED_TRACE(answer);
        qeltest::SetEnvironment("QEL_QUERY_ANSWER", answer);
        ::testing::internal::CaptureStderr();
        void* second = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        const std::string said = ::testing::internal::GetCapturedStderr();
        ASSERT_NE(second, nullptr) << dlerror();
        dlclose(second);

        EXPECT_NE(said.find(kHazardText), std::string::npos) << said;
        const bool no = std::string(answer) == "no";
        EXPECT_EQ(said.find("question \"Base Hazard...\" answered no") != std::string::npos, no)
            << said;
        EXPECT_EQ(said.find("cannot refuse its own load") != std::string::npos, no) << said;
    }
}

#endif

} // namespace
