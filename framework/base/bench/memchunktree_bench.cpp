// Taking and returning chunks of a packed-allocator run: MemChunkTree against
// the peer one would write first, a std::map by address beside a std::set by
// (size, address), with the same choice rule and merging. Steady state: each
// iteration returns a random live chunk and takes a new one.
#include <qel/memchunktree.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace
{

using qel::u32;

const u32 kArena = 64u << 20;

class MapsFreeList
{
public:
    void* GetChunk(u32& count)
    {
        auto it = m_BySize.lower_bound({count, 0});
        if (it == m_BySize.end())
            return nullptr;
        if (it->first == count)
            it = std::prev(m_BySize.upper_bound({count, UINTPTR_MAX}));
        const u32 size = it->first;
        const std::uintptr_t start = it->second;
        m_BySize.erase(it);
        m_ByAddress.erase(start);
        if (size - count < 40)
            count = size;
        else
            Add(start + count, size - count);
        return reinterpret_cast<void*>(start);
    }

    void InsertChunk(void* p, u32 count)
    {
        std::uintptr_t start = reinterpret_cast<std::uintptr_t>(p);
        auto upper = m_ByAddress.lower_bound(start);
        if (upper != m_ByAddress.end() && upper->first == start + count)
        {
            count += upper->second;
            m_BySize.erase({upper->second, upper->first});
            upper = m_ByAddress.erase(upper);
        }
        if (upper != m_ByAddress.begin())
        {
            auto lower = std::prev(upper);
            if (lower->first + lower->second == start)
            {
                m_BySize.erase({lower->second, lower->first});
                start = lower->first;
                count += lower->second;
                m_ByAddress.erase(lower);
            }
        }
        Add(start, count);
    }

private:
    void Add(std::uintptr_t start, u32 count)
    {
        m_ByAddress.emplace(start, count);
        m_BySize.emplace(count, start);
    }

    std::map<std::uintptr_t, u32> m_ByAddress;
    std::set<std::pair<u32, std::uintptr_t>> m_BySize;
};

struct QelTree
{
    QelTree() : tree(1) {}
    void* GetChunk(u32& count)
    {
        return tree.GetChunk(count, qel::MemChunkTree::PackedAllocatorTag);
    }
    void InsertChunk(void* p, u32 count)
    {
        tree.InsertChunkInTree(p, count, qel::MemChunkTree::PackedAllocatorTag);
    }
    qel::MemChunkTree tree;
};

template <class FreeList>
void BM_TakeAndReturn(benchmark::State& state)
{
    const std::size_t live = std::size_t(state.range(0));
    std::unique_ptr<unsigned char[]> arena(new unsigned char[kArena]);
    FreeList list;
    list.InsertChunk(arena.get(), kArena);

    std::mt19937 rng(42);
    auto size = [&rng] { return (40 + rng() % 2000) & ~15u; };
    std::vector<std::pair<void*, u32>> blocks;
    for (std::size_t i = 0; i < live; ++i)
    {
        u32 count = size();
        blocks.emplace_back(list.GetChunk(count), count);
    }
    // Pre-drawn choices, so that both lists see the same sequence.
    std::vector<std::pair<u32, u32>> plan(1 << 16);
    for (auto& step : plan)
        step = {u32(rng() % live), size()};

    std::size_t next = 0;
    for (auto _ : state)
    {
        const auto& step = plan[next++ & (plan.size() - 1)];
        auto& block = blocks[step.first];
        list.InsertChunk(block.first, block.second);
        u32 count = step.second;
        block.first = list.GetChunk(count);
        block.second = count;
        benchmark::DoNotOptimize(block.first);
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_TEMPLATE(BM_TakeAndReturn, QelTree)->Arg(256)->Arg(8192);
BENCHMARK_TEMPLATE(BM_TakeAndReturn, MapsFreeList)->Arg(256)->Arg(8192);

} // namespace

BENCHMARK_MAIN();
