// The character tables, checked entry by entry against their range
// definitions (written here independently of the library's initialisers).
#include <qel/systembase.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

using qel::SystemBase;

struct Range
{
    int first, last;
};

bool In(int c, std::initializer_list<Range> ranges)
{
    for (const Range& r : ranges)
        if (c >= r.first && c <= r.last)
            return true;
    return false;
}

// The asymmetries are deliberate: 0xD0 is not lowered, 0xFF is flagged lower
// case but not raised, 0xDF is only printable, and 0x92 is printable where
// 0x93 is nothing.
int ExpectedLower(int c)
{
    return In(c, {{'A', 'Z'}, {0xC0, 0xCF}, {0xD1, 0xD6}, {0xD8, 0xDD}}) ? c + 0x20 : c;
}

int ExpectedUpper(int c)
{
    return In(c, {{'a', 'z'}, {0xE0, 0xEF}, {0xF1, 0xF6}, {0xF8, 0xFD}}) ? c - 0x20 : c;
}

int ExpectedFlags(int c)
{
    if (In(c, {{0x09, 0x0D}}))
        return 0x10;
    if (c == 0x20)
        return 0x90;
    if (In(c, {{0x21, 0x2F},
               {0x3A, 0x40},
               {0x5B, 0x60},
               {0x7B, 0x7E},
               {0x91, 0x92},
               {0xA0, 0xBF},
               {0xD7, 0xD7},
               {0xDE, 0xDF},
               {0xF0, 0xF0},
               {0xF7, 0xF7},
               {0xFE, 0xFE}}))
        return 0x80;
    if (In(c, {{'0', '1'}}))
        return 0x87;
    if (In(c, {{'2', '9'}}))
        return 0x86;
    if (In(c, {{'A', 'F'}}))
        return 0xCC;
    if (In(c, {{'G', 'Z'}, {0xC0, 0xD6}, {0xD8, 0xDD}}))
        return 0xC8;
    if (In(c, {{'a', 'f'}}))
        return 0xAC;
    if (In(c, {{'g', 'z'}, {0xE0, 0xEF}, {0xF1, 0xF6}, {0xF8, 0xFD}, {0xFF, 0xFF}}))
        return 0xA8;
    return 0x00; // 0x00-0x08, 0x0E-0x1F, 0x7F-0x90, 0x93-0x9F
}

TEST(SystemBaseTables, EveryEntryMatchesItsRange)
{
    for (int c = 0; c < 256; ++c)
    {
        SCOPED_TRACE(c);
        EXPECT_EQ(SystemBase::ms_LowerCase[c], ExpectedLower(c));
        EXPECT_EQ(SystemBase::ms_UpperCase[c], ExpectedUpper(c));
        EXPECT_EQ(SystemBase::ms_AsciiFlag[c], ExpectedFlags(c));
    }
}

TEST(SystemBaseHelpers, CopyLowerCaseFoldsTerminatesAndCounts)
{
    char out[16];
    EXPECT_EQ(SystemBase::CopyLowerCase(out, "/Disks/C\xC9\xDF", sizeof out), 10u);
    EXPECT_EQ(std::string(out), "/disks/c\xE9\xDF");
    EXPECT_EQ(SystemBase::ToLower('\xD0'), '\xD0');
}

TEST(SystemBaseHelpers, CopyLowerCaseTruncatesToCapacity)
{
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(SystemBase::CopyLowerCase(out, "ABCDEF", sizeof out), 3u);
    EXPECT_EQ(std::string(out), "abc");
    EXPECT_EQ(SystemBase::CopyLowerCase(out, "ABC", 0), 0u);
    EXPECT_EQ(out[0], 'a'); // nothing written with no room
}

} // namespace
