// qeltool memory: the memory report as one HTML page, drawn from dumps that
// Mem::DumpAllStatistics (or the allocators' own dumps) saved earlier, or,
// with --demo, from a short workload run here: a game's start with tracked
// debug allocations, a pool of particles, the general allocator and whole
// pages, then a level loaded and unloaded between two markers, leaving a
// few blocks behind.
#include "command.h"
#include "standardoutput.h"
#include "tour.h"

#include <qel/allocator.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/memoryreport.h>
#include <qel/outputfilestream.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace qeltool
{

namespace
{

// Blocks of one kind that the workload keeps, and frees at the end.
struct Kept
{
    qel::Allocator* allocator;
    std::vector<void*> blocks;

    void* Add(void* p)
    {
        if (p != nullptr)
            blocks.push_back(p);
        return p;
    }
    // Frees the blocks whose index `which` picks, keeps the others.
    template <class Which>
    void Free(Which which)
    {
        std::vector<void*> left;
        for (std::size_t i = 0; i < blocks.size(); ++i)
            if (which(i))
                allocator->Free(blocks[i]);
            else
                left.push_back(blocks[i]);
        blocks.swap(left);
    }
    void FreeAll()
    {
        Free([](std::size_t) { return true; });
    }
};

// The demo's workload, and its report written to `out` while it runs.
bool Demo(qel::OutputStream& out)
{
    using qel::Mem;
    std::mt19937 random(2024);
    auto between = [&random](unsigned low, unsigned high)
    { return std::uniform_int_distribution<unsigned>(low, high)(random); };
    qel::Allocator* tracker = Mem::CreateTrackingAllocator();
    qel::Allocator* particles = Mem::CreatePoolAllocator();
    if (tracker == nullptr || particles == nullptr)
        return false;
    Kept meshes{tracker, {}}, textures{tracker, {}}, scripts{tracker, {}}, sounds{tracker, {}};
    Kept sparks{particles, {}}, objects{Mem::GetGeneralAlloc(), {}},
        buffers{Mem::GetPageAlloc(), {}};

    // The game starts: what it loads stays.
    for (int i = 0; i < 400; ++i)
        meshes.Add(tracker->MallocDebug(between(512, 8192), "Mesh", "game/mesh.cpp", 88));
    for (int i = 0; i < 24; ++i)
        textures.Add(
            tracker->MallocDebug(between(16, 96) << 10, "Texture", "game/texture.cpp", 41));
    for (int i = 0; i < 3000; ++i)
        scripts.Add(tracker->MallocDebug(between(24, 200), "Script", "game/script.cpp", 152));
    for (int i = 0; i < 6; ++i)
        sounds.Add(tracker->MallocDebug(between(100, 300) << 10, "Audio", "game/audio.cpp", 23));
    for (int i = 0; i < 12000; ++i)
        sparks.Add(particles->Malloc(48));
    sparks.Free([](std::size_t i) { return i % 3 != 0; }); // out of order: pages a third full
    for (int i = 0; i < 6000; ++i)
        objects.Add(objects.allocator->Malloc(between(16, 2000)));
    objects.Free([](std::size_t i) { return i % 2 == 0; });
    for (int i = 0; i < 8; ++i)
        buffers.Add(buffers.allocator->Malloc(between(8, 64) << 10));

    // A level is loaded and unloaded between two markers; a few of its
    // blocks are never freed.
    qel::AllocatorStatMarker before, after;
    tracker->FillStatMarker(before);
    Kept level{tracker, {}}, paths{tracker, {}}, decals{tracker, {}};
    for (int i = 0; i < 800; ++i)
        level.Add(tracker->MallocDebug(between(64, 4096), "Level", "game/level.cpp", 310));
    for (int i = 0; i < 1500; ++i)
        paths.Add(tracker->MallocDebug(between(32, 128), "AI", "game/pathfinder.cpp", 57));
    for (int i = 0; i < 3; ++i)
        decals.Add(tracker->MallocDebug(48 << 10, "Texture", "game/decals.cpp", 19));
    level.FreeAll();
    paths.Free([](std::size_t i) { return i % 60 != 7; }); // the leak: 25 nodes stay
    decals.Free([](std::size_t i) { return i != 2; });     // and one decal
    tracker->FillStatMarker(after);

    const bool written = Mem::WriteMemoryReport(out, &before, &after);

    for (Kept* kept :
         {&meshes, &textures, &scripts, &sounds, &sparks, &objects, &buffers, &paths, &decals})
        kept->FreeAll();
    delete particles;
    delete tracker;
    return written;
}

bool Write(const char* output, bool (*write)(qel::OutputStream&, void*), void* context)
{
    if (output == nullptr || std::string(output) == "-")
    {
        StandardOutput out;
        return write(out, context);
    }
    try
    {
        qel::OutputFileStream out(VirtualPath(output).c_str());
        return write(out, context);
    }
    catch (const qel::FileException& error)
    {
        std::fprintf(stderr, "%s: %s\n", output, FileReason(error).c_str());
        return false;
    }
}

} // namespace

int MemoryReport(int count, char** dumps, const char* output, bool demo)
{
    if (demo && count > 0)
        return UsageError("memory", "--demo takes no dump");
    if (!demo && count == 0)
        return UsageError("memory", "give the dumps to read, or --demo");
    if (demo)
        return Write(
                   output, [](qel::OutputStream& out, void*) { return Demo(out); }, nullptr)
                   ? ExitDone
                   : ExitFailed;

    qel::MemoryReport report;
    std::string title = "Dumps:";
    for (int i = 0; i < count; ++i)
    {
        const std::string path = VirtualPath(dumps[i]);
        try
        {
            std::unique_ptr<qel::File> file(qel::FileManager::GetSingletonInstance().OpenFile(
                path.c_str(), qel::File::OpenRead | qel::File::OpenExisting));
            char buffer[1 << 16];
            while (const qel::u32 read = file->Read(buffer, sizeof buffer))
                report.Read(buffer, read);
        }
        catch (const qel::FileException& error)
        {
            std::fprintf(stderr, "%s: %s\n", dumps[i], FileReason(error).c_str());
            return ExitFailed;
        }
        title += std::string(" ") + dumps[i];
    }
    if (!report.HasStatistics())
    {
        std::fprintf(stderr, "qeltool memory: no statistics dump in %s\n",
                     count == 1 ? dumps[0] : "the files given");
        return ExitFailed;
    }
    struct Context
    {
        qel::MemoryReport* report;
        const char* title;
    } context = {&report, title.c_str()};
    auto write = [](qel::OutputStream& out, void* c)
    {
        Context& context = *static_cast<Context*>(c);
        return context.report->Write(out, context.title);
    };
    return Write(output, write, &context) ? ExitDone : ExitFailed;
}

} // namespace qeltool
