#include <qel/archive.h>
#include <qel/exception.h>
#include <qel/mem.h>
#include <qel/resourcemanager.h>

#include "base/core/singleton.h"

#include <algorithm>

namespace qel
{

std::atomic<ResourceManager*> ResourceManager::ms_SingletonInstance{nullptr};

namespace
{

typedef ScopedLock<CriticalSection> Locked;

const char* const kBadHandle = "This resource handle isn't valid!";
const char* const kBadIndex = "This resource index isn't valid!";

} // namespace

// The containers' allocator is made first, so that it outlives the manager
// at exit (singletons die in reverse order of creation).
ResourceManager::ResourceManager()
{
    Mem::GetGeneralAlloc();
}

ResourceManager* ResourceManager::CreateSingletonInstance()
{
    return Singleton<ResourceManager>::Create(ms_SingletonInstance, "ResourceManager");
}

u32 ResourceManager::Insert(void* resource)
{
    ResourceManager* self = GetSingletonInstancePointer();
    if (self == nullptr)
        throw Exception(kBadHandle);
    Locked locked(self->m_Lock);
    // The index map, not the pointer map, sizes a new index: a pointer
    // inserted twice holds two indices, and the next one must be neither.
    const bool reused = !self->m_FreeIndices.empty();
    const u32 index =
        reused ? self->m_FreeIndices.back() : static_cast<u32>(self->m_Resources.size());
    // Both maps take the resource or neither does: a map that cannot grow
    // throws (after the allocator's report) and leaves the manager as it was.
    const ResourceMap::iterator placed = self->m_Resources.emplace(index, resource).first;
    try
    {
        self->m_Indices[resource] = index;
    }
    catch (...)
    {
        self->m_Resources.erase(placed);
        throw;
    }
    if (reused)
        self->m_FreeIndices.pop_back();
    return index;
}

u32 ResourceManager::Remove(void* resource)
{
    ResourceManager* self = GetSingletonInstancePointer();
    if (self == nullptr)
        throw Exception(kBadHandle);
    Locked locked(self->m_Lock);
    IndexMap::iterator found = self->m_Indices.find(resource);
    if (found == self->m_Indices.end())
        throw Exception(kBadHandle);
    const u32 index = found->second;
    self->m_FreeIndices.push_back(index); // the one step that may throw, so first
    self->m_Resources.erase(index);
    self->m_Indices.erase(found);
    for (Archive* archive : self->m_Archives)
        archive->TakeOwnership(index);
    return index;
}

void* ResourceManager::GetResource(u32 index)
{
    ResourceManager* self = GetSingletonInstancePointer();
    if (self == nullptr)
        throw Exception(kBadIndex);
    Locked locked(self->m_Lock);
    ResourceMap::const_iterator found = self->m_Resources.find(index);
    if (found == self->m_Resources.end())
        throw Exception(kBadIndex);
    return found->second;
}

u32 ResourceManager::GetResourceIndex(void* resource)
{
    ResourceManager* self = GetSingletonInstancePointer();
    if (self == nullptr)
        throw Exception(kBadHandle);
    Locked locked(self->m_Lock);
    IndexMap::const_iterator found = self->m_Indices.find(resource);
    if (found == self->m_Indices.end())
        throw Exception(kBadHandle);
    return found->second;
}

void ResourceManager::Register(Archive* archive)
{
    ResourceManager* self = GetSingletonInstancePointer();
    if (self == nullptr)
        return;
    Locked locked(self->m_Lock);
    self->m_Archives.push_back(archive);
}

void ResourceManager::Unregister(Archive* archive)
{
    // An archive that outlives the manager (a static one) has nothing to
    // withdraw from, and must not bring the manager back.
    ResourceManager* self = ms_SingletonInstance.load(std::memory_order_acquire);
    if (self == nullptr)
        return;
    Locked locked(self->m_Lock);
    auto& archives = self->m_Archives;
    auto found = std::find(archives.begin(), archives.end(), archive);
    if (found != archives.end())
        archives.erase(found);
}

} // namespace qel
