// Class descriptors and their repository, the factory, and the allocation
// operators every class carries.
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/factory.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

struct Widget : qel::Interface
{
    int value = 42;
};

class WidgetDescriptor : public qel::ClassDescriptor
{
public:
    explicit WidgetDescriptor(const char* name) : ClassDescriptor(name) {}
    WidgetDescriptor(const WidgetDescriptor&) = default;
    qel::Interface* CreateInstance() const override { return new Widget; }
    void SerializeInstance(qel::Interface&, qel::Serializer&) const override {}
};

std::string Reason(const qel::Exception& exception)
{
    return exception.GetReason();
}

TEST(ClassRepository, NamesAreFoundByContentAndCase)
{
    WidgetDescriptor descriptor("Widget");
    const std::string copy = "Widget"; // another pointer, same text
    EXPECT_EQ(qel::ClassDescriptor::Find(copy.c_str()), &descriptor);
    EXPECT_EQ(qel::ClassDescriptor::Find("widget"), nullptr);

    qel::Interface* made = qel::ClassDescriptor::Find("Widget")->CreateInstance();
    EXPECT_EQ(static_cast<Widget*>(made)->value, 42);
    delete made;
}

TEST(ClassRepository, SecondDescriptorOfANameThrowsAndLeavesTheFirst)
{
    WidgetDescriptor first("Gizmo");
    try
    {
        WidgetDescriptor second("Gizmo");
        FAIL() << "registered twice";
    }
    catch (const qel::Exception& exception)
    {
        EXPECT_EQ(Reason(exception), "ClassDescriptor is already registered!");
    }
    EXPECT_EQ(qel::ClassDescriptor::Find("Gizmo"), &first);
}

TEST(ClassRepository, DestroyedDescriptorIsGoneAndACopyUnregistersTheName)
{
    {
        WidgetDescriptor scoped("Scoped");
    }
    EXPECT_EQ(qel::ClassDescriptor::Find("Scoped"), nullptr);

    auto* original = new WidgetDescriptor("Copied");
    {
        WidgetDescriptor copy(*original); // shares the name, does not register
        EXPECT_EQ(qel::ClassDescriptor::Find("Copied"), original);
    } // ...but unregisters it when it dies
    EXPECT_EQ(qel::ClassDescriptor::Find("Copied"), nullptr);
    try
    {
        delete original;
        FAIL() << "unregistered twice";
    }
    catch (const qel::Exception& exception)
    {
        EXPECT_EQ(Reason(exception), "ClassDescriptor isn't currently registered!");
    }
}

struct Creator : qel::CreatorBase
{
};

TEST(Factory, FirstCreatorStaysAndHighBytesSortFirst)
{
    qel::Factory& factory = qel::Factory::GetSingletonInstance();
    Creator first, second;
    factory.Register("Tree", &first);
    factory.Register("Tree", &second);
    const std::string name = "Tree";
    EXPECT_EQ(factory.Find(name.c_str()), &first);
    EXPECT_EQ(factory.Find("tree"), nullptr);
    factory.Unregister("Tree");
    EXPECT_EQ(factory.Find("Tree"), nullptr);

    const qel::Factory::SignedBytesLess less;
    EXPECT_TRUE(less("\xC3\xA9t\xC3\xA9", "Aardvark")); // 0xC3 is negative as a signed byte
    EXPECT_FALSE(less("Aardvark", "\xC3\xA9t\xC3\xA9"));
    EXPECT_TRUE(less("Tree", "Trees"));
    EXPECT_FALSE(less("Tree", "Tree"));
}

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
