// The loader: requests, prefix matching, handlers and their replacement,
// the three exceptions, and the parser pool parsing each file once.
#include <qel/filemanager.h>
#include <qel/loader.h>
#include <qel/parsednode.h>
#include <qel/parser.h>

#include "disk/disktest.h"
#include "support/environment.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace qel;

// Returns the section's name and the data it was given, as one text.
struct EchoHandler : LoaderHandler
{
    explicit EchoHandler(const char* identifier) : LoaderHandler(identifier) {}
    void* Load(ParsedSection* section, void* data) override
    {
        ++calls;
        const ParsedEntry* name = section->GetName();
        last = std::string(name && name->GetIdentifier() ? name->GetIdentifier() : "-") + "/" +
               static_cast<const char*>(data);
        return &last;
    }
    int calls = 0;
    std::string last;
};

EchoHandler objects("LoaderTestObject"); // registered from a static constructor

class LoaderTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        root = folder.VirtualPath();
        disktest::WriteFile(folder.Path() + "objects.txt",
                            "{LoaderTestObject:Desk}\n"
                            "{LoaderTestObject:Lamp(60)\n {LoaderTestLight:Main}}\n"
                            "{LoaderTestUnhandled}\n");
    }
    void TearDown() override { Loader::ReleaseCachedFiles(); }

    std::string Load(const std::string& request, bool allowMissing = false)
    {
        const char* data = "data";
        void* result = Loader::Load(request.c_str(), const_cast<char*>(data), allowMissing);
        return result ? *static_cast<std::string*>(result) : "null";
    }

    template <class E>
    std::string Reason(const std::string& request)
    {
        try
        {
            Load(request);
        }
        catch (const E& e)
        {
            return e.GetReason();
        }
        return "no exception";
    }

    qeltest::TemporaryFolder folder;
    std::string root;
};

TEST_F(LoaderTest, RequestsFindSectionsByPrefixAndReachTheirHandler)
{
    const std::string file = root + "objects.txt";
    EXPECT_EQ(Load(file + "^LoaderTestObject:"), "Desk/data");
    EXPECT_EQ(Load(file + "^LoaderTestObj:La"), "Lamp/data");
    EchoHandler lights("LoaderTestLight");
    EXPECT_EQ(Load(file + "^LoaderTestObject:Lamp^LoaderTestLight"), "Main/data");
    EXPECT_EQ(objects.calls, 2);

    // Relative requests start at the file manager's current directory.
    FileManager& manager = FileManager::GetSingletonInstance();
    char current[FileManager::PathSize];
    manager.GetCurrentDirectory(current, sizeof current);
    ASSERT_EQ(manager.SetCurrentDirectory(root.c_str()), FileManager::MountOk);
    EXPECT_EQ(Load("objects.txt^LoaderTestObject:Desk"), "Desk/data");
    manager.SetCurrentDirectory(current);

    EXPECT_EQ(objects.calls, 3);

    // A later handler of an identifier replaces the earlier one; a handler
    // that dies while registered stops serving it.
    {
        EchoHandler replacement("LoaderTestLight");
        Load(file + "^LoaderTestObject:Lamp^LoaderTestLight");
        EXPECT_EQ(replacement.calls, 1);
        EXPECT_EQ(lights.calls, 1);
    }
    EXPECT_THROW(Load(file + "^LoaderTestObject:Lamp^LoaderTestLight"),
                 Loader::HandlerNotRegistered);
}

TEST_F(LoaderTest, ExceptionsAndAllowedMissingSections)
{
    const std::string file = root + "objects.txt";
    EXPECT_EQ(Reason<Loader::InvalidRequest>("objects.txt"),
              "The requested section is invalid and cannot be searched.\n\nInvalid "
              "request:\nobjects.txt");
    EXPECT_EQ(Reason<Loader::InvalidRequest>(""),
              "The requested section is invalid and cannot be searched.\n\nInvalid request:\n");
    EXPECT_EQ(Reason<Loader::SectionNotFound>(root + "missing.txt^A"),
              "The requested section cannot be found.\n\nRequest:\n" + root + "missing.txt^A");
    EXPECT_EQ(Reason<Loader::SectionNotFound>(file + "^LoaderTestObject:Chair"),
              "The requested section cannot be found.\n\nRequest:\n" + file +
                  "^LoaderTestObject:Chair");
    EXPECT_EQ(Load(file + "^Nothing", true), "null");
    EXPECT_EQ(Reason<Loader::HandlerNotRegistered>(file + "^LoaderTestUnhandled"),
              "No handler were registred for this section.\n\nSection:\nLoaderTestUnhandled");
    EXPECT_EQ(Reason<Loader::LoaderException>(file + "^LoaderTestUnhandled").rfind("No handler", 0),
              0u);
}

TEST_F(LoaderTest, EachFileIsParsedOnceUntilItsCacheIsReleased)
{
    const std::string path = root + "objects.txt";
    ParsedFile* first = ParserPool::GetFile(path.c_str());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(ParserPool::GetFile(path.c_str()), first);
    EXPECT_EQ(ParserPool::GetCachedFileCount(), 1u);
    EXPECT_EQ(ParserPool::GetCachedFile(0), first);

    // The cache answers even when the file has changed.
    disktest::WriteFile(folder.Path() + "objects.txt", "{LoaderTestObject:Other}\n");
    EXPECT_EQ(Load(path + "^LoaderTestObject"), "Desk/data");
    Loader::ReleaseCachedFiles();
    EXPECT_EQ(ParserPool::GetCachedFileCount(), 0u);
    EXPECT_EQ(Load(path + "^LoaderTestObject"), "Other/data");

    ParsedFile* again = Loader::GetFile(path.c_str());
    Loader::ReleaseCachedFiles(again);
    EXPECT_EQ(ParserPool::GetCachedFileCount(), 0u);
    EXPECT_EQ(ParserPool::GetFile((root + "missing.txt").c_str()), nullptr);
    EXPECT_EQ(ParserPool::GetCachedFileCount(), 0u); // nothing cached for a missing file
}

} // namespace
