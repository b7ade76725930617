// The allocation operators every class of the library carries.
#include <qel/allocationoperators.h>
#include <qel/interface.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

struct Widget : qel::Interface
{
    int value = 42;
};

TEST(AllocationOperators, DeleteFreesInTheRealOwner)
{
    qel::Allocator* pool = qel::Mem::CreatePoolAllocator();
    qel::Allocator* general = qel::Mem::GetGeneralAlloc();
    Widget* widget = new (pool) Widget;
    ASSERT_NE(widget, nullptr);
    EXPECT_EQ(qel::Allocator::GetOwner(widget), pool);
    Widget::operator delete(widget, general); // the allocator argument is ignored
    Widget* array = new (pool, __FILE__, __LINE__) Widget[3];
    EXPECT_EQ(qel::Allocator::GetOwner(array), pool);
    delete[] array;
    Widget* plain = new Widget;
    EXPECT_NE(qel::Allocator::GetOwner(plain), pool);
    delete plain;
    delete static_cast<Widget*>(nullptr);
    delete pool; // nothing left in it: no leak listed
}

TEST(AllocationOperators, ExhaustedAllocatorReportsAndYieldsNull)
{
    qel::PageManager& pages = qel::PageManager::GetSingletonInstance();
    qel::Allocator* drain = qel::Mem::CreatePageAllocator();
    qel::Allocator* pool = qel::Mem::CreatePoolAllocator();
    const qel::u32 first = pages.GetFirstMetapageSize(), maximum = pages.GetMaximumSize(),
                   step = pages.GetMetapageStep();
    qel::Mem::SetPageManagerLimits(first, pages.GetSystemBytes(), step);
    std::vector<void*> drained;
    while (void* page = drain->MallocNoThrow(4096))
        drained.push_back(page);

    qeltest::ScriptedHost host; // the fatal error's process exit returns here
    host.Answer({qel::QueryDevice::No});
    Widget* widget = new (pool) Widget;
    EXPECT_EQ(widget, nullptr);
    ASSERT_FALSE(host.questions.empty());
    EXPECT_NE(host.questions[0].text.find("Malloc failed: no more available memory"),
              std::string::npos);
    EXPECT_GE(host.exits, 1);

    for (void* page : drained)
        drain->Free(page);
    qel::Mem::SetPageManagerLimits(first, maximum, step);
    delete drain;
    delete pool;
}

} // namespace
