// File streams against the calls a user would make instead, in one program
// and run: a 256 MB file read and written in bulk through InputFileStream and
// OutputFileStream against read and write with a 64 KB buffer, and one
// million u32 values read and written one at a time against fread and
// fwrite. The files live in the system's temporary folder and are deleted
// at the end.
#include <qel/filemanager.h>
#include <qel/inputfilestream.h>
#include <qel/outputfilestream.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

using qel::u32;

constexpr u32 BigSize = 256u << 20;
constexpr u32 Chunk = 64u << 10;
constexpr u32 ValueCount = 1000000;

std::string g_Folder;  // native, ending in '/'
std::string g_Virtual; // the same folder as a virtual path

std::string Native(const char* name)
{
    return g_Folder + name;
}

std::string Virtual(const char* name)
{
    return g_Virtual + name;
}

std::vector<unsigned char>& ChunkData()
{
    static std::vector<unsigned char> data(Chunk, 0x5A);
    return data;
}

void MakeBigFile()
{
    const int fd = ::open(Native("big.bin").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (u32 done = 0; done < BigSize; done += Chunk)
        if (::write(fd, ChunkData().data(), Chunk) != ssize_t(Chunk))
            break;
    ::close(fd);
    std::FILE* values = std::fopen(Native("values.bin").c_str(), "wb");
    for (u32 i = 0; i < ValueCount; ++i)
        std::fwrite(&i, sizeof i, 1, values);
    std::fclose(values);
}

void BM_BulkRead_InputFileStream(benchmark::State& state)
{
    std::vector<unsigned char> buffer(Chunk);
    for (auto _ : state)
    {
        qel::InputFileStream in(Virtual("big.bin").c_str());
        u32 total = 0;
        while (u32 n = in.Read(buffer.data(), Chunk))
            total += n;
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * BigSize);
}
BENCHMARK(BM_BulkRead_InputFileStream)->Unit(benchmark::kMillisecond);

void BM_BulkRead_SystemRead(benchmark::State& state)
{
    std::vector<unsigned char> buffer(Chunk);
    for (auto _ : state)
    {
        const int fd = ::open(Native("big.bin").c_str(), O_RDONLY);
        u32 total = 0;
        ssize_t n;
        while ((n = ::read(fd, buffer.data(), Chunk)) > 0)
            total += u32(n);
        ::close(fd);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * BigSize);
}
BENCHMARK(BM_BulkRead_SystemRead)->Unit(benchmark::kMillisecond);

void BM_BulkWrite_OutputFileStream(benchmark::State& state)
{
    for (auto _ : state)
    {
        qel::OutputFileStream out(Virtual("out.bin").c_str());
        for (u32 done = 0; done < BigSize; done += Chunk)
            out.Write(ChunkData().data(), Chunk);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * BigSize);
}
BENCHMARK(BM_BulkWrite_OutputFileStream)->Unit(benchmark::kMillisecond);

void BM_BulkWrite_SystemWrite(benchmark::State& state)
{
    for (auto _ : state)
    {
        const int fd = ::open(Native("out.bin").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        for (u32 done = 0; done < BigSize; done += Chunk)
            if (::write(fd, ChunkData().data(), Chunk) != ssize_t(Chunk))
                break;
        ::close(fd);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * BigSize);
}
BENCHMARK(BM_BulkWrite_SystemWrite)->Unit(benchmark::kMillisecond);

void BM_ValueRead_InputFileStream(benchmark::State& state)
{
    for (auto _ : state)
    {
        qel::InputFileStream in(Virtual("values.bin").c_str());
        u32 sum = 0;
        for (u32 i = 0; i < ValueCount; ++i)
        {
            u32 value;
            in.Read(value);
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * ValueCount);
}
BENCHMARK(BM_ValueRead_InputFileStream)->Unit(benchmark::kMillisecond);

void BM_ValueRead_Fread(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::FILE* in = std::fopen(Native("values.bin").c_str(), "rb");
        u32 sum = 0;
        for (u32 i = 0; i < ValueCount; ++i)
        {
            u32 value = 0;
            if (std::fread(&value, sizeof value, 1, in) != 1)
                break;
            sum += value;
        }
        std::fclose(in);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * ValueCount);
}
BENCHMARK(BM_ValueRead_Fread)->Unit(benchmark::kMillisecond);

void BM_ValueWrite_OutputFileStream(benchmark::State& state)
{
    for (auto _ : state)
    {
        qel::OutputFileStream out(Virtual("valuesout.bin").c_str());
        for (u32 i = 0; i < ValueCount; ++i)
            out.Write(i);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * ValueCount);
}
BENCHMARK(BM_ValueWrite_OutputFileStream)->Unit(benchmark::kMillisecond);

void BM_ValueWrite_Fwrite(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::FILE* out = std::fopen(Native("valuesout.bin").c_str(), "wb");
        for (u32 i = 0; i < ValueCount; ++i)
            std::fwrite(&i, sizeof i, 1, out);
        std::fclose(out);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * ValueCount);
}
BENCHMARK(BM_ValueWrite_Fwrite)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    char folder[] = "/tmp/qel_stream_bench_XXXXXX";
    if (::mkdtemp(folder) == nullptr)
        return 1;
    g_Folder = std::string(folder) + "/";
    char path[qel::FileManager::PathSize];
    qel::FileManager::GetSingletonInstance().ResolveLocalPath(g_Folder.c_str(), path, sizeof path);
    g_Virtual = path;
    if (g_Virtual.empty() || g_Virtual.back() != '/')
        g_Virtual += '/';
    MakeBigFile();

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    for (const char* name : {"big.bin", "out.bin", "values.bin", "valuesout.bin"})
        ::unlink(Native(name).c_str());
    ::rmdir(folder);
    return 0;
}
