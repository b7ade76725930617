// MemChunkTree against a plain reference model (a std::map of free chunks)
// over real buffers, plus the choice, split and merge cases one by one.
#include <qel/memchunktree.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

using qel::MemChunkTree;
using qel::u32;

const unsigned char kTag = MemChunkTree::PackedAllocatorTag;

static_assert(sizeof(void*) != 8 || sizeof(MemChunkTree) <= 48, "the tree sits in a run header");

// A zeroed buffer of `units` units of `unit` bytes, starting `skew` bytes
// past a 16-byte boundary.
struct Buffer
{
    Buffer(u32 unit, u32 units, u32 skew = 0)
        : storage(new unsigned char[std::size_t(unit) * units + skew + 16]()), unit(unit),
          base(storage.get() + skew)
    {
    }
    unsigned char* At(u32 offset) const { return base + std::size_t(offset) * unit; }
    u32 OffsetOf(const void* p) const
    {
        return u32((static_cast<const unsigned char*>(p) - base) / unit);
    }

    std::unique_ptr<unsigned char[]> storage;
    u32 unit;
    unsigned char* base;
};

typedef std::map<u32, u32> Chunks; // start offset in units -> size in units

Chunks ChunksOf(const MemChunkTree& tree, const Buffer& buffer)
{
    std::vector<std::pair<const void*, u32>> seen;
    tree.ForEachChunk(
        [](void* start, u32 count, void* context) {
            static_cast<std::vector<std::pair<const void*, u32>>*>(context)->emplace_back(start,
                                                                                          count);
        },
        &seen);
    Chunks chunks;
    for (std::size_t i = 0; i < seen.size(); ++i)
    {
        if (i > 0)
        {
            EXPECT_LT(seen[i - 1].first, seen[i].first) << "ForEachChunk out of address order";
        }
        chunks[buffer.OffsetOf(seen[i].first)] = seen[i].second;
    }
    return chunks;
}

// The reference: the choice, split and merge rules written as directly as possible.
struct Model
{
    explicit Model(u32 unit) : unit(unit), minimum((40 + unit - 1) / unit) {}

    // Returns the offset taken, or -1; `count` as GetChunk leaves it.
    long Take(u32& count)
    {
        const u32 n = count;
        if (n == 0)
            return -1;
        long best = -1;
        u32 bestSize = 0;
        for (const auto& chunk : free)
        {
            if (chunk.second < n)
                continue;
            // Smallest size first; among equals the lowest address, except
            // that an exact fit takes the highest.
            if (best < 0 || chunk.second < bestSize || (chunk.second == n && bestSize == n))
            {
                best = long(chunk.first);
                bestSize = chunk.second;
            }
        }
        if (best < 0)
            return -1;
        count = n;
        return TakeAt(u32(best), count);
    }

    long TakeAt(u32 offset, u32& count)
    {
        const u32 n = count;
        auto it = free.find(offset);
        if (count == 0 || it == free.end() || it->second < n)
            return -1;
        const u32 size = it->second;
        free.erase(it);
        count = size;
        if (std::uint64_t(unit) * (size - n) >= 40)
        {
            free[offset + n] = size - n;
            count = n;
        }
        return long(offset);
    }

    bool Insert(u32 offset, u32 count, bool merge)
    {
        if (std::uint64_t(unit) * count < 40)
            return false;
        auto upper = free.lower_bound(offset);
        if (upper != free.end() && upper->first < offset + count)
            return false;
        auto lower = upper == free.begin() ? free.end() : std::prev(upper);
        if (lower != free.end() && lower->first + lower->second > offset)
            return false;
        if (merge && upper != free.end() && upper->first == offset + count)
        {
            count += upper->second;
            free.erase(upper);
        }
        if (merge && lower != free.end() && lower->first + lower->second == offset)
            lower->second += count;
        else
            free[offset] = count;
        return true;
    }

    u32 Largest() const
    {
        u32 largest = 0;
        for (const auto& chunk : free)
            largest = chunk.second > largest ? chunk.second : largest;
        return largest;
    }

    u32 FreeUnits() const
    {
        u32 sum = 0;
        for (const auto& chunk : free)
            sum += chunk.second;
        return sum;
    }

    u32 unit, minimum;
    Chunks free;
};

void ExpectSame(const MemChunkTree& tree, const Model& model, const Buffer& buffer,
                unsigned char tag = kTag)
{
    ASSERT_TRUE(tree.Validate(tag));
    ASSERT_EQ(ChunksOf(tree, buffer), model.free);
    ASSERT_EQ(tree.GetNumberOfChunks(), u32(model.free.size()));
    ASSERT_EQ(tree.IsEmpty(), model.free.empty());
    ASSERT_EQ(tree.GetFreeUnits(), model.FreeUnits());
    ASSERT_EQ(tree.GetLargestChunk(), model.Largest());
}

// ---- long random sequences against the model --------------------------------

struct RandomCase
{
    u32 unit, units, skew;
};

class ChunkTreeRandom : public ::testing::TestWithParam<RandomCase>
{
};

TEST_P(ChunkTreeRandom, MatchesModel)
{
    const RandomCase c = GetParam();
    for (u32 seed = 1; seed <= 3; ++seed)
    {
        SCOPED_TRACE(testing::Message() << "unit " << c.unit << " seed " << seed);
        std::mt19937 rng(seed);
        auto random = [&rng](u32 low, u32 high) // inclusive
        { return std::uniform_int_distribution<u32>(low, high)(rng); };

        Buffer buffer(c.unit, c.units, c.skew);
        MemChunkTree tree(c.unit);
        Model model(c.unit);
        ASSERT_EQ(tree.GetMinimumCount(), model.minimum);

        // The buffer in three pieces; the middle one kept apart at first.
        const u32 a = c.units / 3, b = 2 * c.units / 3;
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), a, kTag));
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(b), c.units - b, kTag));
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(a), b - a, kTag, false));
        model.Insert(0, a, true);
        model.Insert(b, c.units - b, true);
        model.Insert(a, b - a, false);
        ExpectSame(tree, model, buffer);

        // Taken chunks, each filled with its own byte so that a tree writing
        // where it should not is caught.
        struct Taken
        {
            u32 offset, count;
            unsigned char fill;
        };
        std::vector<Taken> taken;
        u32 lost = 0; // taken under 40 bytes: refused on return
        auto fill = [&](const Taken& t)
        { std::memset(buffer.At(t.offset), t.fill, std::size_t(t.count) * c.unit); };
        auto intact = [&](const Taken& t)
        {
            const unsigned char* p = buffer.At(t.offset);
            for (std::size_t i = 0; i < std::size_t(t.count) * c.unit; ++i)
                if (p[i] != t.fill)
                    return false;
            return true;
        };

        for (int step = 0; step < 6000; ++step)
        {
            const u32 op = random(0, 99);
            if (op < 45)
            {
                // Mostly small requests, some medium, a few too large.
                const u32 kind = random(0, 19);
                const u32 high = kind < 14   ? std::max<u32>(4, c.units / 150)
                                 : kind < 19 ? c.units / 6
                                             : c.units + 8;
                u32 count = random(kind < 19 ? 1 : 0, high);
                u32 expected = count;
                const long offset = model.Take(expected);
                void* p = tree.GetChunk(count, kTag);
                if (offset < 0)
                {
                    ASSERT_EQ(p, nullptr);
                    ASSERT_EQ(count, expected) << "count changed on failure";
                }
                else
                {
                    ASSERT_EQ(p, buffer.At(u32(offset)));
                    ASSERT_EQ(count, expected);
                    taken.push_back(
                        {u32(offset), count, static_cast<unsigned char>(random(1, 255))});
                    fill(taken.back());
                }
            }
            else if (op < 85 && !taken.empty())
            {
                // Give back a taken chunk, or its head or tail.
                const std::size_t i = random(0, u32(taken.size() - 1));
                Taken t = taken[i];
                ASSERT_TRUE(intact(t));
                u32 offset = t.offset, count = t.count;
                if (random(0, 2) == 0 && t.count >= 2 * model.minimum)
                {
                    const u32 cut = random(model.minimum, t.count - model.minimum);
                    if (random(0, 1))
                    {
                        count = cut; // the head goes back
                        taken[i].offset += cut;
                    }
                    else
                    {
                        offset += cut; // the tail goes back
                        count -= cut;
                    }
                    taken[i].count -= count;
                }
                else
                {
                    taken.erase(taken.begin() + std::ptrdiff_t(i));
                }
                const bool merge = random(0, 9) != 0;
                // A chunk taken under 40 bytes cannot come back on its own.
                const bool accepted = count >= model.minimum;
                lost += accepted ? 0 : count;
                ASSERT_EQ(model.Insert(offset, count, merge), accepted);
                ASSERT_EQ(tree.InsertChunkInTree(buffer.At(offset), count, kTag, merge), accepted);
            }
            else if (op < 92 && !taken.empty())
            {
                // Grow a taken chunk in place.
                Taken& t = taken[random(0, u32(taken.size() - 1))];
                const u32 end = t.offset + t.count;
                u32 count = random(0, std::max<u32>(4, c.units / 100));
                u32 expected = count;
                const long offset = model.TakeAt(end, expected);
                void* p = end < c.units ? tree.GetChunkAt(buffer.At(end), count, kTag) : nullptr;
                ASSERT_EQ(p, offset < 0 ? nullptr : buffer.At(end));
                ASSERT_EQ(count, expected);
                if (p != nullptr)
                {
                    t.count += count;
                    fill(t);
                }
            }
            else if (op < 96 && !model.free.empty())
            {
                // Returns that must be refused: overlapping a free chunk, or
                // under 40 bytes.
                auto it = model.free.begin();
                std::advance(it, random(0, u32(model.free.size() - 1)));
                const u32 offset = it->first + random(0, it->second - 1);
                const u32 small = model.minimum - 1;
                ASSERT_FALSE(tree.InsertChunkInTree(buffer.At(offset), model.minimum, kTag));
                if (small > 0 && !taken.empty())
                {
                    ASSERT_FALSE(tree.InsertChunkInTree(buffer.At(taken[0].offset), small, kTag));
                }
            }
            else
            {
                const u32 offset = random(0, c.units - 1);
                void* start = nullptr;
                u32 count = 0;
                auto it = model.free.upper_bound(offset);
                const bool inside = it != model.free.begin() &&
                                    std::prev(it)->first + std::prev(it)->second > offset;
                ASSERT_EQ(tree.FindChunk(buffer.At(offset) + random(0, c.unit - 1), &start, &count),
                          inside);
                if (inside)
                {
                    ASSERT_EQ(start, buffer.At(std::prev(it)->first));
                    ASSERT_EQ(count, std::prev(it)->second);
                }
            }
            ASSERT_NO_FATAL_FAILURE(ExpectSame(tree, model, buffer)) << "step " << step;
        }

        // Everything back, in random order (what is under 40 bytes is refused).
        std::shuffle(taken.begin(), taken.end(), rng);
        for (const Taken& t : taken)
        {
            ASSERT_TRUE(intact(t));
            const bool accepted = model.Insert(t.offset, t.count, true);
            lost += accepted ? 0 : t.count;
            ASSERT_EQ(tree.InsertChunkInTree(buffer.At(t.offset), t.count, kTag), accepted);
        }
        ExpectSame(tree, model, buffer);
        ASSERT_EQ(tree.GetFreeUnits() + lost, c.units);
    }
}

INSTANTIATE_TEST_SUITE_P(Units, ChunkTreeRandom,
                         ::testing::Values(RandomCase{1, 24000, 3}, RandomCase{12, 3000, 0},
                                           RandomCase{4096, 96, 0}),
                         [](const ::testing::TestParamInfo<RandomCase>& info)
                         { return "Unit" + std::to_string(info.param.unit); });

// Thousands of free chunks that never touch, so that both trees grow deep
// and every removal rebalances somewhere.
TEST(ChunkTree, ManyChunksMatchModel)
{
    const u32 kSlots = 3000;
    Buffer buffer(1, kSlots * 200);
    MemChunkTree tree(1);
    Model model(1);
    std::mt19937 rng(7);
    for (u32 i = 0; i < kSlots; ++i)
    {
        const u32 offset = (i * 1237) % kSlots * 200, size = 40 + rng() % 100;
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(offset), size, kTag));
        model.Insert(offset, size, true);
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSame(tree, model, buffer));
    std::map<u32, u32> taken;
    for (int step = 0; step < 20000; ++step)
    {
        if (rng() % 2 == 0 || taken.empty())
        {
            u32 count = 40 + rng() % 100, expected = count;
            const long offset = model.Take(expected);
            void* p = tree.GetChunk(count, kTag);
            ASSERT_EQ(p, offset < 0 ? nullptr : buffer.At(u32(offset)));
            ASSERT_EQ(count, expected);
            if (p != nullptr)
                taken[u32(offset)] = count;
        }
        else
        {
            auto it = taken.begin();
            std::advance(it, rng() % taken.size());
            ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(it->first), it->second, kTag));
            model.Insert(it->first, it->second, true);
            taken.erase(it);
        }
        if (step % 50 == 0)
        {
            ASSERT_NO_FATAL_FAILURE(ExpectSame(tree, model, buffer)) << "step " << step;
        }
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSame(tree, model, buffer));
}

// ---- the named cases ----------------------------------------------------------

TEST(ChunkTree, EmptyTreeAndTooLargeRequestsGiveNull)
{
    Buffer buffer(1, 256);
    MemChunkTree tree(1);
    u32 count = 40;
    EXPECT_TRUE(tree.IsEmpty());
    EXPECT_EQ(tree.GetLargestChunk(), 0u);
    EXPECT_EQ(tree.GetChunk(count, kTag), nullptr);
    EXPECT_EQ(count, 40u);
    EXPECT_TRUE(tree.Validate(kTag));

    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), 100, kTag));
    count = 101;
    EXPECT_EQ(tree.GetChunk(count, kTag), nullptr);
    EXPECT_EQ(count, 101u);
    count = 0;
    EXPECT_EQ(tree.GetChunk(count, kTag), nullptr);
    EXPECT_EQ(tree.GetFreeUnits(), 100u);
    count = 100;
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(0));
    EXPECT_TRUE(tree.IsEmpty());
}

TEST(ChunkTree, ChoiceRule)
{
    Buffer buffer(1, 512);
    MemChunkTree tree(1);
    auto reset = [&]
    {
        tree.Reset();
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), 64, kTag));
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(128), 64, kTag));
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(256), 96, kTag));
    };
    reset();
    u32 count = 64; // an exact fit takes the later of the two 64s
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(128));
    EXPECT_EQ(count, 64u);

    reset();
    count = 80; // 16 bytes would remain: the whole 96 goes
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(256));
    EXPECT_EQ(count, 96u);
    EXPECT_EQ(tree.GetNumberOfChunks(), 2u);

    reset();
    count = 50; // no exact fit: the first 64, whole (14 would remain)
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(0));
    EXPECT_EQ(count, 64u);

    reset();
    count = 65; // only 96 fits; 31 would remain
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(256));
    EXPECT_EQ(count, 96u);

    reset();
    count = 64;
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(128));
    count = 64;
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(0));
    count = 56; // 40 remain: split, the tail stays free
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(256));
    EXPECT_EQ(count, 56u);
    EXPECT_EQ(ChunksOf(tree, buffer), (Chunks{{312, 40}}));
}

TEST(ChunkTree, RemainderBoundaryAndMinimum)
{
    Buffer buffer(12, 100);
    MemChunkTree tree(12); // 4 units = 48 bytes is the smallest chunk
    EXPECT_EQ(tree.GetMinimumCount(), 4u);
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), 20, kTag));
    u32 count = 1; // served as asked: 19 units remain
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(0));
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(ChunksOf(tree, buffer), (Chunks{{1, 19}}));
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(0), 1, kTag)); // too small to come back
    count = 3; // a tail whose node overlapped the taken head's
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(1));
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(tree.Validate(kTag));
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), 4, kTag)); // both heads, merged
    EXPECT_EQ(ChunksOf(tree, buffer), (Chunks{{0, 20}}));
    count = 12; // 8 units remain: split
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(0));
    EXPECT_EQ(count, 12u);
    count = 4; // 4 units (48 bytes) remain: split
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(12));
    EXPECT_EQ(count, 4u);
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(4), 12, kTag));
    count = 13; // 3 units (36 bytes) would remain: all 16 go
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(4));
    EXPECT_EQ(count, 16u);
    EXPECT_TRUE(tree.IsEmpty());
}

TEST(ChunkTree, MergesWithNeighbours)
{
    Buffer buffer(1, 400);
    MemChunkTree tree(1);
    Model model(1);
    auto insert = [&](u32 offset, u32 count, bool merge, u32 chunksAfter)
    {
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(offset), count, kTag, merge));
        model.Insert(offset, count, merge);
        ExpectSame(tree, model, buffer);
        EXPECT_EQ(tree.GetNumberOfChunks(), chunksAfter);
    };
    insert(100, 100, true, 1); // alone
    insert(200, 60, true, 1);  // lower neighbour: [100, 260)
    insert(40, 60, true, 1);   // upper neighbour: [40, 260)
    insert(300, 100, true, 2); // alone again
    insert(260, 40, true, 1);  // both: [40, 400)
    EXPECT_EQ(ChunksOf(tree, buffer), (Chunks{{40, 360}}));
    insert(0, 40, false, 2); // touches, kept apart
    u32 count = 360;
    EXPECT_EQ(tree.GetChunk(count, kTag), buffer.At(40));
    EXPECT_EQ(count, 360u);
}

TEST(ChunkTree, RefusesBadReturns)
{
    Buffer buffer(1, 400);
    MemChunkTree tree(1);
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(100), 100, kTag));
    EXPECT_FALSE(tree.InsertChunkInTree(nullptr, 100, kTag));
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(300), 39, kTag)); // under 40 bytes
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(300), 0, kTag));
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(100), 100, kTag)); // returned twice
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(120), 40, kTag));  // inside
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(61), 40, kTag));   // over the start
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(199), 40, kTag));  // over the end
    EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(0), 300, kTag));   // around it
    EXPECT_EQ(tree.GetNumberOfChunks(), 1u);
    EXPECT_EQ(tree.GetFreeUnits(), 100u);
    EXPECT_TRUE(tree.Validate(kTag));

    // The free units must fit in 32 bits. Only a chunk's first bytes are
    // ever touched, so a chunk may reach far past the buffer here.
    if (sizeof(void*) == 8)
    {
        MemChunkTree big(1);
        ASSERT_TRUE(big.InsertChunkInTree(buffer.At(64), 0xFFFFFFF0u, kTag));
        EXPECT_FALSE(big.InsertChunkInTree(buffer.At(0), 64, kTag));
        EXPECT_TRUE(big.Validate(kTag));
        EXPECT_EQ(big.GetNumberOfChunks(), 1u);
    }
}

TEST(ChunkTree, GetChunkAtAndFindChunk)
{
    Buffer buffer(1, 400);
    MemChunkTree tree(1);
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(100), 200, kTag));
    u32 count = 50;
    EXPECT_EQ(tree.GetChunkAt(buffer.At(120), count, kTag), nullptr); // not a chunk's start
    EXPECT_EQ(tree.GetChunkAt(buffer.At(100), count, kTag), buffer.At(100));
    EXPECT_EQ(count, 50u);
    count = 200;
    EXPECT_EQ(tree.GetChunkAt(buffer.At(150), count, kTag), nullptr); // too small
    EXPECT_EQ(count, 200u);
    void* start = nullptr;
    EXPECT_TRUE(tree.FindChunk(buffer.At(299), &start, &count));
    EXPECT_EQ(start, buffer.At(150));
    EXPECT_EQ(count, 150u);
    EXPECT_FALSE(tree.FindChunk(buffer.At(300), &start, &count));
    EXPECT_FALSE(tree.FindChunk(buffer.At(149), &start, &count));
    count = 120; // 30 would remain: all 150 go
    EXPECT_EQ(tree.GetChunkAt(buffer.At(150), count, kTag), buffer.At(150));
    EXPECT_EQ(count, 150u);
    EXPECT_TRUE(tree.IsEmpty());
}

TEST(ChunkTree, MetapagePages)
{
    const u32 kPage = 4096;
    Buffer buffer(kPage, 16);
    MemChunkTree tree(kPage);
    const unsigned char tag = MemChunkTree::MetapageTag;
    EXPECT_EQ(tree.GetMinimumCount(), 1u);
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), 16, tag));
    u32 one = 1, three = 3;
    EXPECT_EQ(tree.GetChunk(one, tag), buffer.At(0));
    EXPECT_EQ(tree.GetChunk(three, tag), buffer.At(1));
    EXPECT_EQ(one, 1u);
    EXPECT_EQ(tree.GetLargestChunk(), 12u);
    EXPECT_TRUE(tree.Validate(tag));
    EXPECT_FALSE(tree.Validate(kTag)) << "the nodes carry the metapage tag";
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(0), 1, tag));
    ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(1), 3, tag));
    EXPECT_EQ(tree.GetNumberOfChunks(), 1u);
    EXPECT_EQ(tree.GetLargestChunk(), 16u);
}

TEST(ChunkTree, StaysBalancedWithManyChunks)
{
    const u32 kChunks = 4000;
    Buffer buffer(1, kChunks * 100);
    MemChunkTree tree(1);
    // Ascending addresses with sizes that grow too: the worst order for an
    // unbalanced tree, in both trees at once.
    for (u32 i = 0; i < kChunks; ++i)
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(i * 100), 40 + i % 50, kTag));
    EXPECT_TRUE(tree.Validate(kTag));
    EXPECT_EQ(tree.GetNumberOfChunks(), kChunks);
    EXPECT_EQ(tree.GetLargestChunk(), 89u);
    // Exact fits of 40 take the 40-unit chunks from the highest address down.
    for (u32 i = kChunks; i-- > 0;)
    {
        if (i % 50 != 0)
            continue;
        u32 count = 40;
        ASSERT_EQ(tree.GetChunk(count, kTag), buffer.At(i * 100));
    }
    EXPECT_TRUE(tree.Validate(kTag));
    EXPECT_EQ(tree.GetNumberOfChunks(), kChunks - kChunks / 50);
}

} // namespace
