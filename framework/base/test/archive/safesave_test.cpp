// Saves stopped halfway, as users meet them: the serialization routine
// throws, the disk fills up, the process is killed. Each leaves the files of
// the previous save byte for byte as they were, and the next save works and
// leaves no temporary behind.
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/filearchive.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/resourcemanager.h>
#include <qel/serializer.h>

#include "support/environment.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <csignal>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace
{

using qel::u32;

// Its bytes, written in two halves; between them the test's `halfway`
// runs (throws, or stops the process).
struct Blob : qel::Interface
{
    std::string bytes;
    std::function<void()> halfway;
};

class BlobDescriptor : public qel::ClassDescriptor
{
public:
    BlobDescriptor() : ClassDescriptor("SafeSaveBlob") {}
    qel::Interface* CreateInstance() const override { return new Blob; }
    void SerializeInstance(qel::Interface& instance, qel::Serializer& s) const override
    {
        Blob& blob = static_cast<Blob&>(instance);
        u32 half = u32(blob.bytes.size() / 2);
        s.Identify("Half");
        s.Serialize(half);
        blob.bytes.resize(2 * half);
        s.Serialize(&blob.bytes[0], half, 1);
        if (blob.halfway)
            blob.halfway();
        s.Serialize(&blob.bytes[half], half, 1);
    }
};

BlobDescriptor blobClass;

// The files of a folder and their bytes.
std::map<std::string, std::string> Files(const std::string& folder)
{
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
    {
        std::ifstream in(entry.path(), std::ios::binary);
        std::ostringstream bytes;
        bytes << in.rdbuf();
        files[entry.path().filename().string()] = bytes.str();
    }
    return files;
}

std::string VirtualPathOf(const std::string& local)
{
    char path[qel::FileManager::PathSize];
    qel::FileManager::GetSingletonInstance().ResolveLocalPath(local.c_str(), path, sizeof path);
    return std::string(path) + (std::string(path).back() == '/' ? "" : "/");
}

class SafeSave : public ::testing::Test
{
protected:
    void SetUp() override { qel::ResourceManager::Insert(Handle()); }
    void TearDown() override { qel::ResourceManager::Remove(Handle()); }
    void* Handle() { return static_cast<qel::Interface*>(&blob); }

    // A pass of a logging archive over `folder` saving the blob with
    // `size` bytes of `fill`.
    void Save(const std::string& folder, std::size_t size, char fill)
    {
        blob.bytes.assign(size, fill);
        qel::FileArchive archive(1, folder.c_str(), nullptr);
        archive.SetResourceName(Handle(), "blob");
        archive.SetLoggingMode(true);
        archive.BeginSave();
        archive.Save(blobClass, Handle());
        archive.EndSave();
    }

    // Saves a first time, lets `interrupt` run a second save that stops
    // halfway, and checks that the first save's files are there as they
    // were, beside the temporaries of a `killed` save only; then a third
    // save must work and leave only its own files.
    void Check(const std::string& local, bool killed,
               const std::function<void(const std::string&)>& interrupt)
    {
        const std::string root = VirtualPathOf(local);
        Save(root, 1000, 'a');
        const std::map<std::string, std::string> first = Files(local);
        ASSERT_EQ(first.size(), 3u); // blob.bin, its description and the log
        interrupt(root);
        std::map<std::string, std::string> now = Files(local);
        if (killed)
            for (const char* left :
                 {"blob.bin.qeltmp", "blob.bin.dat.qeltmp", "filearchive.log.qeltmp"})
                now.erase(left);
        EXPECT_EQ(now, first);

        blob.halfway = nullptr;
        Save(root, 2000, 'c');
        const std::map<std::string, std::string> third = Files(local);
        ASSERT_EQ(third.size(), 3u) << "a temporary is left";
        EXPECT_EQ(third.at("blob.bin").size(), first.at("blob.bin").size() + 1000);
    }

    Blob blob;
    qeltest::TemporaryFolder folder;
};

TEST_F(SafeSave, TheRoutineThrows)
{
    Check(folder.Path(), false,
          [&](const std::string& root)
          {
              blob.halfway = [] { throw qel::Exception("stopped halfway"); };
              EXPECT_THROW(Save(root, 300000, 'b'), qel::Exception);
          });
}

#if !defined(_WIN32)

TEST_F(SafeSave, TheDiskIsFull)
{
    // A file system of 256 KB, too small for the second save's 300 KB.
    const std::string local = folder.Path() + "small/";
    std::filesystem::create_directories(local);
    if (mount("qeltest", local.c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "no small file system to fill: mounting a tmpfs on " << local
                     << " was refused (" << std::strerror(errno) << "); run as root";
    struct Unmount
    {
        ~Unmount() { umount2(path.c_str(), MNT_DETACH); }
        std::string path;
    } unmount{local};
    Check(local, false,
          [&](const std::string& root)
          {
              qeltest::ScriptedHost host; // the write error is fatal: counted, not done
              EXPECT_THROW(Save(root, 300000, 'b'), qel::FileException);
              ASSERT_FALSE(host.questions.empty());
              EXPECT_NE(host.questions[0].text.find("TODO: trow exceptions"), std::string::npos);
          });
}

TEST_F(SafeSave, TheProcessIsKilled)
{
    Check(folder.Path(), true,
          [&](const std::string& root)
          {
              int halfway[2];
              ASSERT_EQ(pipe(halfway), 0);
              const pid_t child = fork();
              if (child == 0)
              {
                  blob.halfway = [&]
                  {
                      (void)!write(halfway[1], "h", 1);
                      for (;;)
                          pause();
                  };
                  Save(root, 300000, 'b');
                  _exit(0);
              }
              char signal = 0;
              EXPECT_EQ(read(halfway[0], &signal, 1), 1) << "the child never got halfway";
              kill(child, SIGKILL);
              int status = 0;
              waitpid(child, &status, 0);
              EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
              close(halfway[0]);
              close(halfway[1]);
              // Halfway through 300 KB, the first 64 KB block is in the
              // temporary: the kill came in the middle of writing it.
              EXPECT_GE(std::filesystem::file_size(folder.Path() + "blob.bin.qeltmp"), 65536u);
          });
}

#endif

} // namespace
