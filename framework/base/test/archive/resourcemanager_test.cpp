// The resource manager is one per process, so every test starts from
// whatever the others left. Each removes its resources in descending index
// order at the end: a free list that counts down to n, with n..size-1 free,
// hands out indices exactly as an empty one over n recorded resources does.
// So each test sees dense indices from the first one it is given.
#include <qel/archive.h>
#include <qel/binarywriter.h>
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/outputmemorystream.h>
#include <qel/resourcemanager.h>

#include "archive/archivetest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{

using archivetest::ReasonOf;
using qel::ResourceManager;
using qel::u32;

struct CountingArchive : qel::Archive
{
    void TakeOwnership(u32 index) override { taken.push_back(index); }
    void GiveOwnership(u32) override {}
    void* Load(qel::Serializer& serializer) override
    {
        loadedFrom = &serializer;
        return this;
    }
    void Save(qel::Serializer& serializer, qel::ClassDescriptor& cls, void* object) override
    {
        savedTo = &serializer;
        savedClass = &cls;
        savedObject = object;
    }

    std::vector<u32> taken;
    qel::Serializer* loadedFrom = nullptr;
    qel::Serializer* savedTo = nullptr;
    qel::ClassDescriptor* savedClass = nullptr;
    void* savedObject = nullptr;
};

// Removes `resources` in descending order of their indices.
void RemoveAll(std::vector<void*> resources)
{
    std::sort(
        resources.begin(), resources.end(),
        [](void* a, void* b)
        { return ResourceManager::GetResourceIndex(a) > ResourceManager::GetResourceIndex(b); });
    for (void* resource : resources)
        ResourceManager::Remove(resource);
}

TEST(ResourceManager, IndicesAreDenseAndFreedOnesComeBackLastInFirstOut)
{
    int a, b, c, d, e, f;
    const u32 base = ResourceManager::Insert(&a);
    EXPECT_EQ(ResourceManager::Insert(&b), base + 1);
    EXPECT_EQ(ResourceManager::Insert(&c), base + 2);

    EXPECT_EQ(ResourceManager::Remove(&b), base + 1);
    EXPECT_EQ(ResourceManager::Insert(&d), base + 1);

    ResourceManager::Remove(&a);
    ResourceManager::Remove(&c);
    EXPECT_EQ(ResourceManager::Insert(&e), base + 2);
    EXPECT_EQ(ResourceManager::Insert(&f), base);

    EXPECT_EQ(ResourceManager::GetResource(base), &f);
    EXPECT_EQ(ResourceManager::GetResource(base + 1), &d);
    EXPECT_EQ(ResourceManager::GetResourceIndex(&e), base + 2);
    RemoveAll({&d, &e, &f});
}

TEST(ResourceManager, UnknownHandlesAndIndicesThrowAndChangeNothing)
{
    int kept, gone, stranger;
    const u32 keptIndex = ResourceManager::Insert(&kept);
    const u32 goneIndex = ResourceManager::Insert(&gone);
    ResourceManager::Remove(&gone);

    EXPECT_EQ(ReasonOf([&] { ResourceManager::GetResource(goneIndex); }),
              "This resource index isn't valid!");
    EXPECT_EQ(ReasonOf([&] { ResourceManager::Remove(&gone); }),
              "This resource handle isn't valid!");
    EXPECT_EQ(ReasonOf([&] { ResourceManager::Remove(&stranger); }),
              "This resource handle isn't valid!");
    EXPECT_EQ(ReasonOf([&] { ResourceManager::GetResourceIndex(&stranger); }),
              "This resource handle isn't valid!");

    // The failed removals freed nothing: the one free index comes back once.
    EXPECT_EQ(ResourceManager::Insert(&gone), goneIndex);
    EXPECT_EQ(ResourceManager::Insert(&stranger), goneIndex + 1);
    EXPECT_EQ(ResourceManager::GetResource(keptIndex), &kept);
    RemoveAll({&kept, &gone, &stranger});
}

TEST(ResourceManager, APointerInsertedTwiceKeepsItsOldIndexBehind)
{
    int twice;
    const u32 first = ResourceManager::Insert(&twice);
    const u32 second = ResourceManager::Insert(&twice);
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(ResourceManager::GetResourceIndex(&twice), second);
    EXPECT_EQ(ResourceManager::GetResource(first), &twice);

    EXPECT_EQ(ResourceManager::Remove(&twice), second);
    EXPECT_EQ(ResourceManager::GetResource(first), &twice);
    // The stale index is never handed out again.
    int next;
    EXPECT_EQ(ResourceManager::Insert(&next), second);
    int after;
    EXPECT_EQ(ResourceManager::Insert(&after), second + 1);
    RemoveAll({&next, &after});
}

TEST(ResourceManager, EveryRegisteredArchiveHearsOfEachRemovalInOrder)
{
    CountingArchive first;
    int a, b;
    const u32 ia = ResourceManager::Insert(&a);
    const u32 ib = ResourceManager::Insert(&b);
    {
        CountingArchive second;
        ResourceManager::Remove(&b);
        EXPECT_EQ(second.taken, std::vector<u32>{ib});
        // Registered twice, told twice; withdrawn once, told once.
        ResourceManager::Register(&second);
        ResourceManager::Insert(&b);
        ResourceManager::Remove(&b);
        EXPECT_EQ(second.taken, (std::vector<u32>{ib, ib, ib}));
        ResourceManager::Unregister(&second);
        ResourceManager::Insert(&b);
        ResourceManager::Remove(&b);
        EXPECT_EQ(second.taken.size(), 4u);
    }
    // The destroyed archive withdrew; an unknown one is ignored.
    ResourceManager::Unregister(reinterpret_cast<qel::Archive*>(&a));
    ResourceManager::Remove(&a);
    EXPECT_EQ(first.taken, (std::vector<u32>{ib, ib, ib, ia}));
}

// Seeded stress: three threads insert, check and remove resources while a
// fourth withdraws and registers archives again. No two live resources share
// an index; an archive listed all along hears of every removal; the others
// never of more.
TEST(ResourceManager, StressRemovalsReachTheArchivesListedMeanwhile)
{
    const unsigned seed = 20261124;
    SCOPED_TRACE("seed " + std::to_string(seed));
    struct TallyArchive : qel::Archive
    {
        void TakeOwnership(u32) override { heard.fetch_add(1, std::memory_order_relaxed); }
        void GiveOwnership(u32) override {}
        void* Load(qel::Serializer&) override { return nullptr; }
        void Save(qel::Serializer&, qel::ClassDescriptor&, void*) override {}
        std::atomic<u32> heard{0};
    };
    TallyArchive steady;
    std::vector<TallyArchive> coming(4);
    std::atomic<u32> removals{0}, mismatches{0};
    std::atomic<bool> stop{false};
    auto worker = [&](unsigned index)
    {
        std::mt19937 random(seed + index);
        std::vector<char> items(64);
        std::vector<int> held(items.size(), -1); // the index each item has, -1 when out
        for (int step = 0; step < 20000; ++step)
        {
            const size_t at = random() % items.size();
            if (held[at] < 0)
            {
                held[at] = int(ResourceManager::Insert(&items[at]));
            }
            else if (random() % 2 == 0)
            {
                ResourceManager::Remove(&items[at]);
                removals.fetch_add(1, std::memory_order_relaxed);
                held[at] = -1;
            }
            else if (ResourceManager::GetResource(u32(held[at])) != &items[at] ||
                     ResourceManager::GetResourceIndex(&items[at]) != u32(held[at]))
            {
                mismatches.fetch_add(1, std::memory_order_relaxed);
            }
        }
        for (size_t at = 0; at < items.size(); ++at)
            if (held[at] >= 0)
            {
                ResourceManager::Remove(&items[at]);
                removals.fetch_add(1, std::memory_order_relaxed);
            }
    };
    std::thread registrar(
        [&]
        {
            std::mt19937 random(seed);
            while (!stop.load())
            {
                TallyArchive& archive = coming[random() % coming.size()];
                ResourceManager::Unregister(&archive);
                ResourceManager::Register(&archive);
            }
        });
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < 3; ++i)
        workers.emplace_back(worker, i);
    for (std::thread& thread : workers)
        thread.join();
    stop = true;
    registrar.join();

    EXPECT_EQ(mismatches.load(), 0u);
    EXPECT_EQ(steady.heard.load(), removals.load());
    for (TallyArchive& archive : coming)
    {
        EXPECT_LE(archive.heard.load(), removals.load());
        ResourceManager::Unregister(&archive);
    }
    // The removals left the free indices in any order: taking them all and
    // giving them back in descending order leaves them as the next test
    // expects.
    std::vector<char> fillers(3 * 64);
    std::vector<void*> all;
    for (char& filler : fillers)
    {
        ResourceManager::Insert(&filler);
        all.push_back(&filler);
    }
    RemoveAll(all);
}

struct Descriptor : qel::ClassDescriptor
{
    Descriptor() : ClassDescriptor("ResourceManagerTestClass") {}
    qel::Interface* CreateInstance() const override { return nullptr; }
    void SerializeInstance(qel::Interface&, qel::Serializer&) const override {}
};

TEST(Archive, SerializersHandWholeObjectsToTheirArchive)
{
    CountingArchive archive;
    Descriptor descriptor;
    qel::OutputMemoryStream stream;
    qel::BinaryWriter writer(&stream, nullptr);
    writer.SetContext(7, &archive);
    EXPECT_EQ(writer.GetVersion(), 7u);
    EXPECT_EQ(writer.GetArchive(), &archive);

    int object = 0;
    writer.Save(descriptor, &object);
    EXPECT_EQ(archive.savedTo, &writer);
    EXPECT_EQ(archive.savedClass, &descriptor);
    EXPECT_EQ(archive.savedObject, &object);
    EXPECT_EQ(writer.Load(), &archive);
    EXPECT_EQ(archive.loadedFrom, &writer);

    // A copy carries the context along.
    qel::BinaryWriter copy(writer);
    EXPECT_EQ(copy.GetArchive(), &archive);
    EXPECT_EQ(copy.GetVersion(), 7u);
}

} // namespace
