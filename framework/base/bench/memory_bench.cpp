// The owner lookup, and page runs from the page manager against mmap and
// munmap of the same size, the peer a user would otherwise call. Part of
// the memory benchmark program, whose main is in memchunktree_bench.cpp.
#include <qel/allocator.h>
#include <qel/mallocallocator.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include <benchmark/benchmark.h>

#include <sys/mman.h>

namespace
{

void BM_GetOwner(benchmark::State& state)
{
    qel::Allocator* pages = qel::Mem::GetPageAlloc();
    char* blocks[4];
    for (char*& block : blocks)
        block = static_cast<char*>(pages->Malloc(5 * 4096));
    unsigned i = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(qel::Allocator::GetOwner(blocks[i & 3] + (i & 0x3FFF)));
        ++i;
    }
    for (char* block : blocks)
        pages->Free(block);
}
BENCHMARK(BM_GetOwner);

void BM_PageManagerRun(benchmark::State& state)
{
    const qel::u32 count = qel::u32(state.range(0));
    qel::MallocAllocator owner;
    qel::PageManager manager(64u << 20, 0xFFFFF000u, 4u << 20); // a kept first metapage
    manager.AddOwner(&owner);
    for (auto _ : state)
    {
        void* run = manager.AllocatePages(&owner, count);
        benchmark::DoNotOptimize(run);
        manager.ReleasePages(&owner, run, count);
    }
    state.SetLabel("pages: " + std::to_string(count));
}
BENCHMARK(BM_PageManagerRun)->Arg(1)->Arg(16)->Arg(256);

void BM_MmapMunmap(benchmark::State& state)
{
    const std::size_t bytes = std::size_t(state.range(0)) * 4096;
    for (auto _ : state)
    {
        void* run =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        benchmark::DoNotOptimize(run);
        munmap(run, bytes);
    }
    state.SetLabel("pages: " + std::to_string(state.range(0)));
}
BENCHMARK(BM_MmapMunmap)->Arg(1)->Arg(16)->Arg(256);

} // namespace
