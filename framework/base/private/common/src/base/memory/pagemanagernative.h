// The system side of the page manager: the user address range, read once,
// and the commit and release of system memory. A singleton of its own that
// the page manager makes sure exists before it touches system memory, so
// that it outlives every page manager.
#pragma once

#include <qel/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qel
{

class PageManagerNative
{
public:
    static PageManagerNative& GetSingletonInstance() { return *GetSingletonInstancePointer(); }
    static PageManagerNative* GetSingletonInstancePointer()
    {
        PageManagerNative* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? instance : CreateSingletonInstance();
    }

    std::uintptr_t GetLowestAddress() const { return m_LowestAddress; }
    std::uintptr_t GetHighestAddress() const { return m_HighestAddress; }

    // `oneBlock`: see native::CommitPages.
    void* Commit(std::size_t bytes, bool oneBlock);
    void Release(void* start, std::size_t bytes);
    // See native::CanMovePages and native::MovePages.
    bool CanMove() const;
    bool Move(void* from, std::size_t bytes, void* to);

private:
    template <class T, class Storage>
    friend class Singleton;

    PageManagerNative();

    static PageManagerNative* CreateSingletonInstance();

    std::uintptr_t m_LowestAddress;
    std::uintptr_t m_HighestAddress;

    static std::atomic<PageManagerNative*> ms_SingletonInstance;
};

} // namespace qel
