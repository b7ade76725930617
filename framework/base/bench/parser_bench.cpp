// The sectioned text parser beside the parsers a user would pick instead,
// on the same content written in each one's own syntax, in the same run:
// inih (INI: one [section] per object, its entries as key = value),
// libconfig++ (nested groups and lists) and RapidJSON (a DOM of nested
// objects and arrays). About 10 MB of text each: objects with a name, a
// nested light section, bare and quoted parameters, and a comment per
// object. Each iteration parses the whole file from disk into a tree (the
// parser's tree, libconfig's Config, RapidJSON's Document; inih only calls
// back), and destroys it; MB/s is of each format's own text. Ours runs with
// the comments skipped (0), as the peers skip theirs, and kept (1), its
// default. The parser pool's memory is reported against the file's size as
// the counter "tree/file", with the comments skipped and kept.
#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/packedallocator.h>
#include <qel/parsednode.h>
#include <qel/parser.h>
#include <qel/poolallocator.h>

#include <benchmark/benchmark.h>

#include <ini.h>
#include <libconfig.h++>
#include <rapidjson/document.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace
{

const int kObjects = 60000;

struct Files
{
    Files()
    {
        folder = (std::filesystem::temp_directory_path() / "qel-parser-bench").string();
        std::filesystem::create_directories(folder);
        std::ostringstream sectioned, ini, config, json;
        config << "objects = (\n";
        json << "{\"objects\": [\n";
        for (int i = 0; i < kObjects; ++i)
        {
            const std::string name = "object" + std::to_string(i);
            sectioned << "; object " << i << "\n{Object:" << name << "(\"a quoted name\", 7)\n"
                      << "\tPosition(1.5 " << i % 100 << " -2.25)\n\tColour(255, 214, 170)\n"
                      << "\t{Light:Main\n\t\tPower(60)\n\t\tShade(\"linen\", soft)\n\t}\n}\n";
            ini << "; object " << i << "\n[" << name << "]\ntitle = a quoted name\ncount = 7\n"
                << "position = 1.5 " << i % 100 << " -2.25\ncolour = 255, 214, 170\n"
                << "light.power = 60\nlight.shade = linen, soft\n";
            config << (i ? ",\n" : "") << "  # object " << i << "\n  { name = \"" << name
                   << "\"; title = \"a quoted name\"; count = 7;\n    position = [1.5, " << i % 100
                   << ".0, -2.25]; colour = [255, 214, 170];\n"
                   << "    light = { power = 60; shade = [\"linen\", \"soft\"]; }; }";
            json << (i ? ",\n" : "") << "{\"name\": \"" << name
                 << "\", \"title\": \"a quoted name\", \"count\": 7, \"position\": [1.5, "
                 << i % 100 << ", -2.25], \"colour\": [255, 214, 170], "
                 << "\"light\": {\"power\": 60, \"shade\": [\"linen\", \"soft\"]}}";
        }
        config << "\n);\n";
        json << "\n]}\n";
        Write("scene.txt", sectioned.str(), sectionedSize);
        Write("scene.ini", ini.str(), iniSize);
        Write("scene.cfg", config.str(), configSize);
        jsonText = json.str();
        Write("scene.json", jsonText, jsonSize);
        char path[qel::FileManager::PathSize];
        qel::FileManager::GetSingletonInstance().ResolveLocalPath((folder + "/scene.txt").c_str(),
                                                                  path, sizeof path);
        sectionedVirtual = path;
    }
    ~Files() { std::filesystem::remove_all(folder); }

    void Write(const char* name, const std::string& text, std::size_t& size)
    {
        std::ofstream(folder + "/" + name, std::ios::binary) << text;
        size = text.size();
    }

    std::string folder, sectionedVirtual, jsonText;
    std::size_t sectionedSize = 0, iniSize = 0, configSize = 0, jsonSize = 0;
};

Files& TheFiles()
{
    static Files files;
    return files;
}

void BM_QelParser(benchmark::State& state)
{
    Files& files = TheFiles();
    qel::Parser::SetParsingComment(state.range(0) != 0);
    for (auto _ : state)
    {
        qel::ParsedFile* tree = qel::Parser::ParseFile(files.sectionedVirtual.c_str());
        benchmark::DoNotOptimize(tree);
        delete tree;
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files.sectionedSize));
}
BENCHMARK(BM_QelParser)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Inih(benchmark::State& state)
{
    Files& files = TheFiles();
    const std::string path = files.folder + "/scene.ini";
    for (auto _ : state)
    {
        long values = 0;
        ini_parse(
            path.c_str(),
            [](void* user, const char*, const char*, const char*)
            {
                ++*static_cast<long*>(user);
                return 1;
            },
            &values);
        benchmark::DoNotOptimize(values);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files.iniSize));
}
BENCHMARK(BM_Inih)->Unit(benchmark::kMillisecond);

void BM_LibconfigPlusPlus(benchmark::State& state)
{
    Files& files = TheFiles();
    const std::string path = files.folder + "/scene.cfg";
    for (auto _ : state)
    {
        libconfig::Config config;
        config.readFile(path.c_str());
        benchmark::DoNotOptimize(config.getRoot().getLength());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files.configSize));
}
BENCHMARK(BM_LibconfigPlusPlus)->Unit(benchmark::kMillisecond);

void BM_RapidJson(benchmark::State& state)
{
    Files& files = TheFiles();
    const std::string path = files.folder + "/scene.json";
    for (auto _ : state)
    {
        // Read from the file as the others do, then parse into a DOM.
        std::ifstream in(path, std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        rapidjson::Document document;
        document.Parse(text.c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(files.jsonSize));
}
BENCHMARK(BM_RapidJson)->Unit(benchmark::kMillisecond);

// Bytes in use in the shared allocators behind the general one.
qel::u64 GeneralBytes()
{
    return qel::u64(static_cast<qel::PoolAllocator*>(qel::Mem::GetSmallAlloc())
                        ->GetTotals()
                        .currentUsedSize) +
           static_cast<qel::PackedAllocator*>(qel::Mem::GetBigAlloc())
               ->GetStatistics()
               .currentUsedSize;
}

// What a cached tree costs: the general allocator's growth while it holds
// one tree, against the file's size; comments skipped (0) or kept (1).
void BM_QelTreeMemory(benchmark::State& state)
{
    Files& files = TheFiles();
    qel::Parser::SetParsingComment(state.range(0) != 0);
    double ratio = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        const qel::u64 before = GeneralBytes();
        state.ResumeTiming();
        qel::ParsedFile* tree = qel::Parser::ParseFile(files.sectionedVirtual.c_str());
        state.PauseTiming();
        ratio = double(GeneralBytes() - before) / double(files.sectionedSize);
        delete tree;
        state.ResumeTiming();
    }
    state.counters["tree/file"] = ratio;
}
BENCHMARK(BM_QelTreeMemory)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
