// The factory: creators by class name.
#include <qel/factory.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

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

} // namespace
