// Class descriptors and their repository.
#include <qel/classdescriptor.h>
#include <qel/exception.h>

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

} // namespace
