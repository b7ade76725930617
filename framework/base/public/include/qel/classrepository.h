// The registry of class descriptors, by name (case-sensitive). Keys are
// copies of the names held in memory of the General allocator. Lookups,
// insertions and removals take no lock: descriptors register during static
// initialisation, which is single-threaded.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/generalallocator.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>

namespace qel
{

class ClassDescriptor;

class QEL_API ClassRepository
{
public:
    QEL_ALLOCATION_OPERATORS

    typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> Key;

    static ClassRepository& GetSingletonInstance();
    static ClassRepository& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

    // Throw Exception when the name is already there, or not there; the map
    // is then left as it was.
    void Register(ClassDescriptor* descriptor);
    void Unregister(const char* name);
    ClassDescriptor* Find(const char* name) const;
    std::size_t GetNumberOfClasses() const { return m_Classes.size(); }

private:
    template <class T, class Storage>
    friend class Singleton;

    ClassRepository();
    ~ClassRepository() = default;
    ClassRepository(const ClassRepository&) = delete;
    ClassRepository& operator=(const ClassRepository&) = delete;

    static ClassRepository* CreateSingletonInstance();

    std::map<Key, ClassDescriptor*, std::less<Key>,
             GeneralAllocator<std::pair<const Key, ClassDescriptor*>>>
        m_Classes;

    static std::atomic<ClassRepository*> ms_SingletonInstance;
};

} // namespace qel
