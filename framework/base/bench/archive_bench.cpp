// The file archive saving and loading 10,000 small resources, one file each,
// with and without the .dat descriptions, beside plain open/write/close of
// the same bytes (and open/read/close to read them back), in the same run.
// Each iteration is the whole set; the counters give the time per resource
// (items_per_second) in a fresh folder under the system's temporary one.
#include <qel/classdescriptor.h>
#include <qel/filearchive.h>
#include <qel/filemanager.h>
#include <qel/resourcemanager.h>
#include <qel/serializer.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

const int kResources = 10000;

struct Small : qel::Interface
{
    float position[3] = {1, 2, 3};
    qel::u32 flags = 7;
    bool visible = true;
    char name[16] = "small resource";
};

class SmallClass : public qel::ClassDescriptor
{
public:
    SmallClass() : ClassDescriptor("BenchSmall") {}
    qel::Interface* CreateInstance() const override { return new Small; }
    void SerializeInstance(qel::Interface& object, qel::Serializer& s) const override
    {
        Small& small = static_cast<Small&>(object);
        s.Identify("Position");
        s.Serialize(small.position, 3, sizeof(float));
        s.Identify("Flags");
        s.Serialize(small.flags);
        s.Identify("Visible");
        s.Serialize(small.visible);
        s.Identify("Name");
        if (s.IsWriting())
            qel::WriteString(s, small.name);
        else
            qel::ReadString(s, small.name, sizeof small.name);
    }
};

SmallClass smallClass;

struct Folder
{
    Folder()
    {
        local = (std::filesystem::temp_directory_path() / "qel-archive-bench").string();
        std::filesystem::remove_all(local);
        std::filesystem::create_directories(local + "/plain");
        char path[qel::FileManager::PathSize];
        qel::FileManager::GetSingletonInstance().ResolveLocalPath(local.c_str(), path, sizeof path);
        root = std::string(path) + "/";
    }
    ~Folder() { std::filesystem::remove_all(local); }
    std::string local, root;
};

std::string Name(int i)
{
    return "r" + std::to_string(i);
}

void Save(benchmark::State& state, bool script)
{
    Folder folder;
    std::vector<Small> objects(kResources);
    qel::FileArchive archive(1, folder.root.c_str(), nullptr);
    archive.EnableScriptOutput(script);
    for (int i = 0; i < kResources; ++i)
    {
        qel::ResourceManager::Insert(static_cast<qel::Interface*>(&objects[i]));
        archive.SetResourceName(static_cast<qel::Interface*>(&objects[i]), Name(i).c_str());
    }
    for (auto _ : state)
    {
        archive.BeginSave();
        for (Small& object : objects)
            archive.Save(smallClass, static_cast<qel::Interface*>(&object));
        archive.EndSave();
    }
    for (int i = kResources; i-- > 0;)
        qel::ResourceManager::Remove(static_cast<qel::Interface*>(&objects[i]));
    state.SetItemsProcessed(state.iterations() * kResources);
}

void BM_ArchiveSave(benchmark::State& state)
{
    Save(state, state.range(0) != 0);
}
BENCHMARK(BM_ArchiveSave)->Arg(0)->Arg(1)->ArgNames({"dat"})->Unit(benchmark::kMillisecond);

void BM_ArchiveLoad(benchmark::State& state)
{
    Folder folder;
    {
        std::vector<Small> objects(kResources);
        qel::FileArchive archive(1, folder.root.c_str(), nullptr);
        archive.EnableScriptOutput(false);
        for (int i = 0; i < kResources; ++i)
        {
            qel::ResourceManager::Insert(static_cast<qel::Interface*>(&objects[i]));
            archive.SetResourceName(static_cast<qel::Interface*>(&objects[i]), Name(i).c_str());
            archive.Save(smallClass, static_cast<qel::Interface*>(&objects[i]));
        }
        for (int i = kResources; i-- > 0;)
            qel::ResourceManager::Remove(static_cast<qel::Interface*>(&objects[i]));
    }
    for (auto _ : state)
    {
        qel::FileArchive archive(1, folder.root.c_str(), nullptr);
        std::vector<qel::Interface*> loaded;
        loaded.reserve(kResources);
        for (int i = 0; i < kResources; ++i)
            loaded.push_back(static_cast<qel::Interface*>(archive.Load(Name(i).c_str())));
        state.PauseTiming();
        for (auto object = loaded.rbegin(); object != loaded.rend(); ++object)
        {
            qel::ResourceManager::Remove(*object);
            delete *object;
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kResources);
}
BENCHMARK(BM_ArchiveLoad)->Unit(benchmark::kMillisecond);

// The same bytes as a resource file, through open/write/close.
std::string FileBytes()
{
    std::string bytes = "qel/b0-l";
    auto put = [&](const void* p, std::size_t n) { bytes.append(static_cast<const char*>(p), n); };
    const qel::u32 version = 1, nameLength = 10, textLength = 14;
    Small small;
    put(&version, 4);
    put(&nameLength, 4);
    put("BenchSmall", 10);
    put(small.position, 12);
    put(&small.flags, 4);
    put(&small.visible, 1);
    put(&textLength, 4);
    put(small.name, 14);
    return bytes;
}

void BM_PlainWrite(benchmark::State& state)
{
    Folder folder;
    const std::string bytes = FileBytes();
    for (auto _ : state)
        for (int i = 0; i < kResources; ++i)
        {
            const std::string path = folder.local + "/plain/" + Name(i) + ".bin";
            const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            benchmark::DoNotOptimize(write(fd, bytes.data(), bytes.size()));
            close(fd);
        }
    state.SetItemsProcessed(state.iterations() * kResources);
}
BENCHMARK(BM_PlainWrite)->Unit(benchmark::kMillisecond);

void BM_PlainRead(benchmark::State& state)
{
    Folder folder;
    const std::string bytes = FileBytes();
    for (int i = 0; i < kResources; ++i)
    {
        const std::string path = folder.local + "/plain/" + Name(i) + ".bin";
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        benchmark::DoNotOptimize(write(fd, bytes.data(), bytes.size()));
        close(fd);
    }
    char buffer[256];
    for (auto _ : state)
        for (int i = 0; i < kResources; ++i)
        {
            const std::string path = folder.local + "/plain/" + Name(i) + ".bin";
            const int fd = open(path.c_str(), O_RDONLY);
            benchmark::DoNotOptimize(read(fd, buffer, sizeof buffer));
            close(fd);
        }
    state.SetItemsProcessed(state.iterations() * kResources);
}
BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
