// Resource names are file names in UTF-8, in the case given, on every
// platform: an archive saved on one system loads by the same names on
// another. With QEL_ARCHIVE_NAMES_SAVE=DIR the test saves its archive into
// the folder DIR and keeps it; with QEL_ARCHIVE_NAMES_LOAD=DIR it loads the
// archive found there (CI moves archives between Linux and Windows so);
// with neither it saves and loads in a temporary folder.
#include <qel/filearchive.h>
#include <qel/filemanager.h>
#include <qel/resourcemanager.h>

#include "archive/archivetest.h"
#include "support/environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

using archivetest::Handle;
using archivetest::Item;
using qel::ResourceManager;
using qel::u32;

// Each names the next; the first is loaded by name and brings the others.
const char* const kNames[] = {u8"R\u00e4ume/L\u00e4mpe", "Upper/Case", u8"\u65e5\u672c/\u8a9e"};

std::string Root(const std::string& local)
{
    char root[qel::FileManager::PathSize];
    EXPECT_TRUE(qel::FileManager::GetSingletonInstance().ResolveLocalPath(
        std::filesystem::absolute(std::filesystem::u8path(local)).u8string().c_str(), root,
        sizeof root));
    std::string text = root;
    return text.back() == '/' ? text : text + '/';
}

void Save(const std::string& folder)
{
    qel::FileArchive archive(1, Root(folder).c_str(), nullptr);
    std::vector<Item*> links;
    for (const char* name : kNames)
    {
        links.push_back(new Item);
        links.back()->value = u32(links.size());
        ResourceManager::Insert(Handle(links.back()));
        archive.SetResourceName(Handle(links.back()), name);
    }
    for (std::size_t i = 0; i + 1 < links.size(); ++i)
        links[i]->first = links[i + 1];
    archive.BeginSave();
    archive.Save(archivetest::itemClass, Handle(links.front()));
    archive.EndSave();
    for (auto link = links.rbegin(); link != links.rend(); ++link)
    {
        ResourceManager::Remove(Handle(*link));
        delete *link;
    }
}

void Load(const std::string& folder)
{
    qel::FileArchive archive(1, Root(folder).c_str(), nullptr);
    std::vector<Item*> loaded;
    for (Item* item = archivetest::ItemOf(archive.Load(kNames[0])); item; item = item->first)
        loaded.push_back(item);
    ASSERT_EQ(loaded.size(), 3u);
    for (u32 i = 0; i < 3; ++i)
    {
        EXPECT_EQ(loaded[i]->value, i + 1);
        EXPECT_STREQ(archive.GetFilename(Handle(loaded[i])), kNames[i]);
    }
    for (auto link = loaded.rbegin(); link != loaded.rend(); ++link)
    {
        ResourceManager::Remove(Handle(*link));
        delete *link;
    }
}

// The folders and files of the archive, as the system names them.
std::vector<std::string> OnDisk(const std::string& folder)
{
    std::vector<std::string> names;
    const std::filesystem::path base = std::filesystem::u8path(folder);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(base))
        names.push_back(entry.path().lexically_relative(base).generic_u8string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(ArchiveNames, SavedNamesAreTheFilesAndLoadBack)
{
    const char* saveTo = std::getenv("QEL_ARCHIVE_NAMES_SAVE");
    const char* loadFrom = std::getenv("QEL_ARCHIVE_NAMES_LOAD");
    qeltest::TemporaryFolder temporary;
    if (loadFrom == nullptr)
    {
        const std::string folder = saveTo ? saveTo : temporary.Path();
        std::filesystem::create_directories(std::filesystem::u8path(folder));
        // The library's errors are no std::exception: their reason is said.
        EXPECT_EQ(archivetest::ReasonOf([&] { Save(folder); }), "no exception");
        std::vector<std::string> expected;
        for (const char* name : kNames)
        {
            const std::string file = name;
            expected.push_back(file.substr(0, file.find('/')));
            expected.push_back(file + ".bin");
            expected.push_back(file + ".bin.dat");
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(OnDisk(folder), expected);
    }
    if (saveTo == nullptr)
    {
        EXPECT_EQ(archivetest::ReasonOf([&] { Load(loadFrom ? loadFrom : temporary.Path()); }),
                  "no exception");
    }
}

} // namespace
