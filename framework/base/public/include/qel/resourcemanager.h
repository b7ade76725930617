// Small integer indices for loaded resources, and the list of live archives.
//
// A resource is any object an archive produced, held as an untyped pointer.
// Insert gives it an index: the last index freed by Remove if there is one
// (last in, first out), otherwise the count of recorded indices, so indices
// stay dense. Insert does not check for a pointer it already knows: the
// pointer then maps to its new index while the old index still maps to it.
// Remove frees the index and tells every registered archive, in
// registration order, TakeOwnership(index) while the lock is held.
//
// Failures throw qel::Exception with the lock released:
//   Remove, GetResourceIndex of an unknown pointer
//       "This resource handle isn't valid!"
//   GetResource of an unknown index
//       "This resource index isn't valid!"
//
// Every operation takes the manager's one re-entrant lock for its whole
// duration; any thread may call. Once the manager is gone at shutdown,
// Register and Unregister do nothing and no handle or index is valid.
#pragma once

#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <atomic>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace qel
{

class Archive;

class QEL_API ResourceManager
{
public:
    static u32 Insert(void* resource);
    static u32 Remove(void* resource);
    static void* GetResource(u32 index);
    static u32 GetResourceIndex(void* resource);

    // Appends `archive` to the list.
    static void Register(Archive* archive);
    // Removes the first occurrence of `archive`, keeping the order of the
    // rest; an archive not in the list is ignored.
    static void Unregister(Archive* archive);

    static ResourceManager& GetSingletonInstance() { return *GetSingletonInstancePointer(); }
    // Null after the teardown at shutdown (reported once).
    static ResourceManager* GetSingletonInstancePointer()
    {
        ResourceManager* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? instance : CreateSingletonInstance();
    }
    static ResourceManager& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

private:
    template <class T, class Storage>
    friend class Singleton;

    typedef std::map<void*, u32, std::less<void*>, GeneralAllocator<std::pair<void* const, u32>>>
        IndexMap;
    typedef std::map<u32, void*, std::less<u32>, GeneralAllocator<std::pair<const u32, void*>>>
        ResourceMap;

    ResourceManager();
    ~ResourceManager() = default;
    ResourceManager(const ResourceManager&) = delete;
    ResourceManager& operator=(const ResourceManager&) = delete;

    static ResourceManager* CreateSingletonInstance();

    IndexMap m_Indices;
    ResourceMap m_Resources;
    std::vector<u32, GeneralAllocator<u32>> m_FreeIndices;
    std::vector<Archive*, GeneralAllocator<Archive*>> m_Archives;
    CriticalSection m_Lock;

    static std::atomic<ResourceManager*> ms_SingletonInstance;
};

} // namespace qel
