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

// ---- the named cases ----------------------------------------------------------

// One step of a scripted case. Insert and Apart (no merge) must be accepted,
// Refuse refused; Get and GetAt must return the chunk at `at` (-1: null) and
// leave `after` in the count; Find must find a chunk (`at` 1) or not (0).
// After every step the tree must match the model.
enum Op
{
    Insert,
    Apart,
    Refuse,
    Get,
    GetAt,
    Find
};

struct Step
{
    Op op;
    u32 offset, count;
    long at = 0;
    u32 after = 0;
};

struct ScriptCase
{
    const char* name;
    u32 unit, units;
    unsigned char tag;
    std::vector<Step> steps;
};

void PrintTo(const ScriptCase& c, std::ostream* out)
{
    *out << c.name;
}

class ChunkTreeScript : public ::testing::TestWithParam<ScriptCase>
{
};

TEST_P(ChunkTreeScript, MatchesExpectationsAndModel)
{
    const ScriptCase& c = GetParam();
    Buffer buffer(c.unit, c.units);
    MemChunkTree tree(c.unit);
    Model model(c.unit);
    ASSERT_EQ(tree.GetMinimumCount(), model.minimum);
    for (std::size_t i = 0; i < c.steps.size(); ++i)
    {
        const Step& s = c.steps[i];
        SCOPED_TRACE(testing::Message() << "step " << i);
        u32 count = s.count, modelCount = s.count;
        if (s.op == Insert || s.op == Apart || s.op == Refuse)
        {
            const bool merge = s.op != Apart;
            ASSERT_EQ(model.Insert(s.offset, s.count, merge), s.op != Refuse);
            ASSERT_EQ(tree.InsertChunkInTree(buffer.At(s.offset), s.count, c.tag, merge),
                      s.op != Refuse);
        }
        else if (s.op == Find)
        {
            void* start = nullptr;
            auto it = model.free.upper_bound(s.offset);
            const bool inside =
                it != model.free.begin() && std::prev(it)->first + std::prev(it)->second > s.offset;
            ASSERT_EQ(inside, s.at == 1);
            ASSERT_EQ(tree.FindChunk(buffer.At(s.offset), &start, &count), inside);
            if (inside)
            {
                ASSERT_EQ(start, buffer.At(std::prev(it)->first));
                ASSERT_EQ(count, std::prev(it)->second);
            }
        }
        else
        {
            const long expected =
                s.op == Get ? model.Take(modelCount) : model.TakeAt(s.offset, modelCount);
            ASSERT_EQ(expected, s.at) << "the model";
            void* p = s.op == Get ? tree.GetChunk(count, c.tag)
                                  : tree.GetChunkAt(buffer.At(s.offset), count, c.tag);
            ASSERT_EQ(p, s.at < 0 ? nullptr : buffer.At(u32(s.at)));
            ASSERT_EQ(count, s.after);
            ASSERT_EQ(modelCount, s.after) << "the model";
        }
        ASSERT_NO_FATAL_FAILURE(ExpectSame(tree, model, buffer, c.tag));
        if (c.tag != kTag && !tree.IsEmpty())
        {
            ASSERT_FALSE(tree.Validate(kTag)) << "the nodes carry the case's tag";
        }
    }
}

// clang-format off
const ScriptCase kScripts[] = {
    {"EmptyAndTooLarge", 1, 256, kTag, {
        {Get, 0, 40, -1, 40}, // empty: null, count kept
        {Insert, 0, 100}, {Get, 0, 101, -1, 101}, {Get, 0, 0, -1, 0}, {Get, 0, 100, 0, 100}}},
    {"Choice", 1, 512, kTag, {
        {Insert, 0, 64}, {Insert, 128, 64}, {Insert, 256, 96},
        {Get, 0, 64, 128, 64}, // an exact fit takes the later of the two 64s
        {Get, 0, 50, 0, 64},   // no exact fit: the first 64, whole (14 would remain)
        {Get, 0, 65, 256, 96}, // only 96 fits; 31 would remain: whole
        {Insert, 0, 64}, {Insert, 128, 64}, {Insert, 256, 96},
        {Get, 0, 64, 128, 64}, {Get, 0, 64, 0, 64},
        {Get, 0, 56, 256, 56}, // 40 remain: split, the tail stays free
        {Insert, 256, 56},
        {Get, 0, 80, 256, 96}}}, // 16 would remain: the whole 96 goes
    {"RemainderAndMinimum", 12, 100, kTag, { // 4 units (48 bytes) is the smallest chunk
        {Insert, 0, 20},
        {Get, 0, 1, 0, 1}, // served as asked: 19 units remain
        {Refuse, 0, 1},    // too small to come back
        {Get, 0, 3, 1, 3}, // a tail whose node overlapped the taken head's
        {Insert, 0, 4},    // both heads, merged
        {Get, 0, 12, 0, 12}, {Get, 0, 4, 12, 4}, // 8, then 4 units remain: split
        {Insert, 4, 12},
        {Get, 0, 13, 4, 16}}}, // 3 units (36 bytes) would remain: all 16 go
    {"Merges", 1, 400, kTag, {
        {Insert, 100, 100}, // alone
        {Insert, 200, 60},  // lower neighbour: [100, 260)
        {Insert, 40, 60},   // upper neighbour: [40, 260)
        {Insert, 300, 100}, // alone again
        {Insert, 260, 40},  // both: [40, 400)
        {Apart, 0, 40},     // touches, kept apart
        {Get, 0, 360, 40, 360}}},
    {"BadReturns", 1, 400, kTag, {
        {Insert, 100, 100},
        {Refuse, 300, 39}, {Refuse, 300, 0}, // under 40 bytes
        {Refuse, 100, 100},                  // returned twice
        {Refuse, 120, 40}, {Refuse, 61, 40}, // inside, over the start
        {Refuse, 199, 40}, {Refuse, 0, 300}}}, // over the end, around it
    {"GetAtAndFind", 1, 400, kTag, {
        {Insert, 100, 200},
        {GetAt, 120, 50, -1, 50}, // not a chunk's start
        {GetAt, 100, 50, 100, 50},
        {GetAt, 150, 200, -1, 200}, // too small
        {Find, 299, 0, 1}, {Find, 300, 0, 0}, {Find, 149, 0, 0},
        {GetAt, 150, 120, 150, 150}}}, // 30 would remain: all 150 go
    {"MetapagePages", 4096, 16, MemChunkTree::MetapageTag, {
        {Insert, 0, 16}, {Get, 0, 1, 0, 1}, {Get, 0, 3, 1, 3},
        {Insert, 0, 1}, {Insert, 1, 3}}}, // all merged again
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, ChunkTreeScript, ::testing::ValuesIn(kScripts),
                         [](const ::testing::TestParamInfo<ScriptCase>& info)
                         { return std::string(info.param.name); });

TEST(ChunkTree, RefusesNullAndFreeUnitsPast32Bits)
{
    Buffer buffer(1, 400);
    MemChunkTree tree(1);
    EXPECT_FALSE(tree.InsertChunkInTree(nullptr, 100, kTag));
    EXPECT_TRUE(tree.IsEmpty());
    // Only a chunk's first bytes are ever touched, so a chunk may reach far
    // past the buffer here.
    if (sizeof(void*) == 8)
    {
        ASSERT_TRUE(tree.InsertChunkInTree(buffer.At(64), 0xFFFFFFF0u, kTag));
        EXPECT_FALSE(tree.InsertChunkInTree(buffer.At(0), 64, kTag));
        EXPECT_TRUE(tree.Validate(kTag));
        EXPECT_EQ(tree.GetNumberOfChunks(), 1u);
    }
}

} // namespace
