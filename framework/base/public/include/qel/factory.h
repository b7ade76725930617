// The factory: object creators registered by class name.
//
// The library only keeps the creators; what they create, and how, is the
// business of the code that registers them. Names are not copied (they must
// outlive their registration) and are ordered byte by byte as signed 8-bit
// values, so names with bytes of 0x80 and above sort before plain ASCII ones.
// The map is not locked: registration is expected during start-up.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/generalallocator.h>

#include <atomic>
#include <map>

namespace qel
{

// What client code registers with the factory.
class QEL_API CreatorBase
{
public:
    QEL_ALLOCATION_OPERATORS

    virtual ~CreatorBase();
};

class QEL_API Factory
{
public:
    QEL_ALLOCATION_OPERATORS

    // The instance lives on the General allocator.
    static Factory& GetSingletonInstance();
    static Factory& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

    // A name already present keeps its first creator.
    void Register(const char* name, CreatorBase* creator);
    void Unregister(const char* name);
    // The creator registered under that name (compared by content), or null.
    CreatorBase* Find(const char* name) const;

    // The order of the names: byte by byte, as signed 8-bit values.
    struct QEL_API SignedBytesLess
    {
        bool operator()(const char* left, const char* right) const;
    };

private:
    template <class T, class Storage>
    friend class Singleton;

    Factory() = default;
    ~Factory() = default;
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;

    static Factory* CreateSingletonInstance();

    std::map<const char*, CreatorBase*, SignedBytesLess,
             GeneralAllocator<std::pair<const char* const, CreatorBase*>>>
        m_Creators;

    static std::atomic<Factory*> ms_SingletonInstance;
};

} // namespace qel
