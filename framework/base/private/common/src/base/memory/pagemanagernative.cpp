#include "base/memory/pagemanagernative.h"

#include "base/core/singleton.h"
#include "base/memory/pages_native.h"

namespace qel
{

std::atomic<PageManagerNative*> PageManagerNative::ms_SingletonInstance{nullptr};

PageManagerNative* PageManagerNative::CreateSingletonInstance()
{
    return Singleton<PageManagerNative>::Create(ms_SingletonInstance, "PageManagerNative");
}

PageManagerNative::PageManagerNative() : m_LowestAddress(0), m_HighestAddress(0)
{
    native::GetUserAddressRange(m_LowestAddress, m_HighestAddress);
}

void* PageManagerNative::Commit(std::size_t bytes, bool oneBlock)
{
    return native::CommitPages(bytes, oneBlock);
}

void PageManagerNative::Release(void* start, std::size_t bytes)
{
    native::ReleasePages(start, bytes);
}

bool PageManagerNative::CanMove() const
{
    return native::CanMovePages();
}

bool PageManagerNative::Move(void* from, std::size_t bytes, void* to)
{
    return native::MovePages(from, bytes, to);
}

} // namespace qel
