// The file archive: files written once per pass, the inline form of unnamed
// resources, descriptions and the log, loading each file once, cycles, the
// naming rules, and failed loads that leave nothing behind.
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/filearchive.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/genericreader.h>
#include <qel/resourcemanager.h>
#include <qel/serializer.h>
#include <qel/threadmanager.h>

#include "archive/archivetest.h"
#include "disk/disktest.h"
#include "support/environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace
{

using archivetest::Handle;
using archivetest::Item;
using archivetest::itemClass;
using archivetest::ItemDescriptor;
using archivetest::ItemOf;
using archivetest::ReasonOf;
using qel::FileArchive;
using qel::ResourceManager;
using qel::u32;

class FileArchiveTest : public ::testing::Test
{
protected:
    void SetUp() override { archive.SetRoot(folder.VirtualPath().c_str()); }

    // The highest index first, so that the manager's free indices count
    // down again for the tests that follow.
    void TearDown() override
    {
        std::sort(owned.begin(), owned.end(),
                  [](Item* a, Item* b)
                  {
                      return ResourceManager::GetResourceIndex(Handle(a)) >
                             ResourceManager::GetResourceIndex(Handle(b));
                  });
        for (Item* item : owned)
        {
            ResourceManager::Remove(Handle(item));
            delete item;
        }
    }

    // A resource of the test's own, inserted and named when `name` is set.
    Item* Make(u32 value, const char* name)
    {
        Item* item = new Item;
        item->value = value;
        ResourceManager::Insert(Handle(item));
        owned.push_back(item);
        if (name)
            archive.SetResourceName(Handle(item), name);
        return item;
    }

    // The index the manager hands out next: a failed load that left an
    // object behind would have taken it.
    static u32 NextIndex()
    {
        Item probe;
        const u32 next = ResourceManager::Insert(Handle(&probe));
        ResourceManager::Remove(Handle(&probe));
        return next;
    }

    std::string File(const std::string& name) { return disktest::ReadFile(folder.Path() + name); }
    bool Exists(const std::string& name)
    {
        return std::ifstream(folder.Path() + name, std::ios::binary).good();
    }

    qeltest::TemporaryFolder folder;
    FileArchive archive{7, nullptr, nullptr};
    std::vector<Item*> owned;
};

TEST_F(FileArchiveTest, PassWritesEachFileOnceWithItsDescriptionAndLog)
{
    EXPECT_STREQ(archive.GetExtension(), ".bin");
    EXPECT_TRUE(archive.IsScriptOutputEnabled());
    Item* shared = Make(2, "shared");
    Item* inner = Make(3, nullptr); // unnamed: stored inside its parent
    Item* top = Make(1, "top");
    top->first = shared;
    top->second = inner;
    inner->first = shared;

    archive.SetLoggingMode(true);
    archive.BeginSave();
    EXPECT_FALSE(archive.IsOutsideSavePass());
    archive.Save(itemClass, Handle(top));
    archive.Save(itemClass, Handle(shared)); // written already in this pass
    archive.EndSave();

    EXPECT_EQ(File("filearchive.log"), "top\r\nshared\r\n");
    EXPECT_TRUE(Exists("top.bin") && Exists("shared.bin"));
    EXPECT_EQ(File("shared.bin.dat"), "File Version: u32(7)\n"
                                      "Class Name: u32(15)\n"
                                      "char[](ArchiveTestItem)\n"
                                      "Value: u32(2)\n"
                                      "Link: bool(False)\n"
                                      "Link: bool(False)\n");
    EXPECT_EQ(File("top.bin.dat"), "File Version: u32(7)\n"
                                   "Class Name: u32(15)\n"
                                   "char[](ArchiveTestItem)\n"
                                   "Value: u32(1)\n"
                                   "Link: bool(True)\n"
                                   "Resource Identifier: u32(6)\n"
                                   "char[](shared)\n"
                                   "Link: bool(True)\n"
                                   "Resource Identifier: u32(0)\n"
                                   "char[]()\n"
                                   "Class Name: u32(15)\n"
                                   "char[](ArchiveTestItem)\n"
                                   "Value: u32(3)\n"
                                   "Link: bool(True)\n"
                                   "Resource Identifier: u32(6)\n"
                                   "char[](shared)\n"
                                   "Link: bool(False)\n");
    const std::string binary = File("top.bin");
    EXPECT_EQ(binary.substr(0, 8), "qel/b0-l");

    // Outside a pass a saved name stays saved until told otherwise.
    archive.EnableScriptOutput(false);
    archive.SetResourceName(Handle(inner), "inner");
    archive.Save(itemClass, Handle(inner));
    archive.Save(itemClass, Handle(inner));
    EXPECT_TRUE(Exists("inner.bin"));
    EXPECT_FALSE(Exists("inner.bin.dat"));
    archive.SetSaved("inner", false);
    archive.SetSaved("shared", true);
    EXPECT_EQ(File("filearchive.log"), "top\r\nshared\r\n"); // no pass, no log
}

// The shared file names the top one back: files naming each other load
// once each.
TEST_F(FileArchiveTest, LoadBuildsTheGraphOnceAndKnownNamesAreNotReread)
{
    {
        Item* shared = Make(20, "shared");
        Item* inner = Make(30, nullptr);
        Item* top = Make(10, "top");
        top->first = shared;
        top->second = inner;
        inner->first = shared;
        shared->first = top;
        archive.BeginSave();
        archive.Save(itemClass, Handle(top));
        archive.EndSave();
    }
    FileArchive reader(7, archive.GetRoot(), nullptr);
    Item* top = ItemOf(reader.Load("top"));
    ASSERT_NE(top, nullptr);
    for (Item* each : {top, top->first, top->second})
        owned.push_back(each);
    EXPECT_EQ(top->value, 10u);
    ASSERT_TRUE(top->first && top->second);
    EXPECT_EQ(top->first->value, 20u);
    EXPECT_EQ(top->second->value, 30u);
    EXPECT_EQ(top->second->first, top->first); // one object for one file
    EXPECT_EQ(top->first->first, top);
    // Made and numbered before its fields: the parent comes first.
    EXPECT_LT(ResourceManager::GetResourceIndex(Handle(top)),
              ResourceManager::GetResourceIndex(Handle(top->first)));
    EXPECT_STREQ(reader.GetFilename(Handle(top->first)), "shared");
    EXPECT_FALSE(reader.IsResourceAlreadyNamed(Handle(top->second)));

    // Known names come back without the file.
    std::remove((folder.Path() + "top.bin").c_str());
    EXPECT_EQ(reader.Load("top"), Handle(top));
    EXPECT_EQ(reader.GetResourceNamed("nothing"), nullptr);
    EXPECT_EQ(reader.GetResourceNamed("shared"), Handle(top->first));
    EXPECT_THROW(reader.Reload(Handle(top)), qel::FileNotFoundException);

    // Reload refills the object in place from its file.
    top->first->value = 99;
    reader.Reload(Handle(top->first));
    EXPECT_EQ(top->first->value, 20u);
}

// Runs `work` on a thread of a 256 KB stack (on Windows the process's
// default, the larger): a save or load that took stack for each level of
// nesting would overflow it long before the depths of these tests.
template <class Work>
void OnSmallStack(Work work)
{
    struct Call
    {
        Work* work;
        static void Run(void* call) { (*static_cast<Call*>(call)->work)(); }
    } call{&work};
    const u32 id = qel::ThreadManager::Create(&Call::Run, &call, 256 * 1024, 0, false);
    ASSERT_NE(id, u32(qel::ThreadManager::InvalidThreadId));
    qel::ThreadManager::Wait(qel::s32(id));
}

// A chain of files each naming the next, saved and loaded whole.
TEST_F(FileArchiveTest, ChainsOfNamedFilesTakeNoStackPerFile)
{
    const u32 depth = 1000;
    archive.EnableScriptOutput(false);
    Item* top = nullptr;
    for (u32 i = depth; i-- > 0;)
    {
        Item* item = Make(i, ("c" + std::to_string(i)).c_str());
        item->first = top;
        top = item;
    }
    FileArchive reader(7, archive.GetRoot(), nullptr);
    Item* loaded = nullptr;
    OnSmallStack(
        [&]
        {
            archive.Save(itemClass, Handle(top));
            loaded = ItemOf(reader.Load("c0"));
        });
    u32 length = 0;
    for (Item* item = loaded; item != nullptr; item = item->first, ++length)
    {
        owned.push_back(item);
        ASSERT_EQ(item->value, length);
        ASSERT_STREQ(reader.GetFilename(Handle(item)), ("c" + std::to_string(length)).c_str());
    }
    EXPECT_EQ(length, depth);
}

// A file of unnamed items each holding the next, `depth` deep, as the
// archive writes them.
std::string InlineChain(u32 depth)
{
    std::string bytes = "qel/b0-l";
    auto word = [&](u32 v) { bytes.append(reinterpret_cast<const char*>(&v), 4); };
    word(7);
    for (u32 i = 0; i < depth; ++i)
    {
        if (i != 0)
            word(0); // "Resource Identifier": none, the item follows inline
        word(15);
        bytes += "ArchiveTestItem";
        word(i);
        bytes += char(i + 1 < depth); // a first link
    }
    bytes += '\0';                 // the innermost one's second link
    bytes.append(depth - 1, '\0'); // every other one's second link
    return bytes;
}

// Unnamed items held inside each other are read by their routines called
// from each other's: as deep as the stack holds, and deeper than that a
// clean error that leaves nothing behind.
TEST_F(FileArchiveTest, InlineNestingDeeperThanTheStackIsAnError)
{
    FileArchive reader(7, archive.GetRoot(), nullptr);
    disktest::WriteFile(folder.Path() + "shallow.bin", InlineChain(300));
    u32 length = 0;
    for (Item* item = ItemOf(reader.Load("shallow")); item; item = item->first, ++length)
        owned.push_back(item);
    EXPECT_EQ(length, 300u);

    const u32 next = NextIndex();
    disktest::WriteFile(folder.Path() + "deep.bin", InlineChain(200000));
    EXPECT_EQ(ReasonOf([&] { reader.Load("deep"); }),
              "Resources nested too deeply for the stack: " + std::string(archive.GetRoot()) +
                  "deep.bin");
    EXPECT_EQ(NextIndex(), next) << "an object was left behind";
}

TEST_F(FileArchiveTest, NamingRules)
{
    Item* one = Make(1, nullptr);
    Item* two = Make(2, nullptr);
    EXPECT_EQ(ReasonOf([&] { archive.Save(itemClass, Handle(one)); }),
              "Resource isn't identified.");
    archive.SetResourceName(Handle(one), "one");
    archive.SetResourceName(Handle(two), "two");
    EXPECT_EQ(archive.GetResourceNamed("one"), Handle(one));
    EXPECT_EQ(ReasonOf([&] { archive.SetResourceName(Handle(two), "one"); }), // taken
              "This resource name is already in use!");
    // A fresh name throws too unless the index is 0, and stays bound to 0.
    const u32 index = ResourceManager::GetResourceIndex(Handle(two));
    if (index != 0)
    {
        EXPECT_THROW(archive.SetResourceName(Handle(two), "fresh"), qel::Exception);
        EXPECT_STREQ(archive.GetFilename(Handle(two)), "two");
    }
    archive.SetResourceName(Handle(two), nullptr);
    EXPECT_FALSE(archive.IsResourceAlreadyNamed(Handle(two)));
    EXPECT_EQ(archive.GetResourceNamed("two"), nullptr);

    // Removal from the manager makes every archive forget the name.
    Item* last = Make(3, "last");
    owned.pop_back();
    ResourceManager::Remove(Handle(last));
    delete last;
    EXPECT_EQ(archive.GetResourceNamed("last"), nullptr);
}

// A descriptor whose class cannot be made.
class NullDescriptor : public ItemDescriptor
{
public:
    NullDescriptor() : ItemDescriptor("ArchiveTestNull") {}
    qel::Interface* CreateInstance() const override { return nullptr; }
};

NullDescriptor nullClass;

// Damage to the file loaded or to the one it names: an error naming what
// is wrong, and nothing loaded stays behind.
TEST_F(FileArchiveTest, FailedLoadsLeaveNothingBehind)
{
    Item* good = Make(5, "good");
    Item* top = Make(4, "top");
    top->first = good;
    archive.BeginSave();
    archive.Save(itemClass, Handle(top));
    archive.EndSave();
    const std::map<std::string, std::string> whole = {{"top", File("top.bin")},
                                                      {"good", File("good.bin")}};

    FileArchive reader(7, archive.GetRoot(), nullptr);
    auto reason = [&] { return ReasonOf([&] { reader.Load("top"); }); };
    const u32 next = NextIndex();
    auto expectFailure =
        [&](const std::string& name, const std::string& bytes, const std::string& expected)
    {
        SCOPED_TRACE(name + " holding " + std::to_string(bytes.size()) + " bytes");
        disktest::WriteFile(folder.Path() + name + ".bin", bytes);
        EXPECT_EQ(reason(), expected);
        EXPECT_EQ(reader.GetResourceNamed("top"), nullptr);
        EXPECT_EQ(reader.GetResourceNamed("good"), nullptr);
        EXPECT_EQ(NextIndex(), next) << "an object was left behind";
        disktest::WriteFile(folder.Path() + name + ".bin", whole.at(name));
    };
    const std::string unknown =
        "Type of resource unknown!\nMake sure the ClassDescriptor is registered.";
    for (const auto& file : whole)
    {
        const std::string path = archive.GetRoot() + file.first + ".bin";
        // Cut short anywhere, its header included.
        for (std::size_t length = 0; length < file.second.size(); ++length)
            expectFailure(file.first, file.second.substr(0, length),
                          "Resource file cut short: " + path);
        // A class nobody registered, and one that cannot be made.
        for (const char* className : {"ArchiveTestIteX", "ArchiveTestNull"})
        {
            std::string renamed = file.second;
            renamed.replace(renamed.find("ArchiveTestItem"), 15, className);
            expectFailure(file.first, renamed, unknown);
        }
        // A name length that lies.
        std::string lying = file.second;
        lying[14] = '\x7F'; // the class name's length, little-endian
        expectFailure(file.first, lying, "Resource file damaged: " + path);
    }
    std::remove((folder.Path() + "good.bin").c_str());
    EXPECT_EQ(reason().find("File not found"), 0u);
}

} // namespace
