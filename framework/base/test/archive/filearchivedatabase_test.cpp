// The readable description: its exact text for every value type, names,
// blocks, strings and the levels.
#include <qel/filearchivedatabase.h>
#include <qel/outputmemorystream.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace
{

using qel::u32;

std::string Text(qel::OutputMemoryStream& out)
{
    out.Flush();
    u32 size = 0;
    const unsigned char* data = out.GetBuffer(size);
    return std::string(reinterpret_cast<const char*>(data), size);
}

TEST(FileArchiveDatabase, EveryTypeNamesBlocksAndSecondValues)
{
    qel::OutputMemoryStream out;
    qel::FileArchiveDatabase db(&out);
    u32 version = 3;
    db.Identify("File Version");
    db.Serialize(version);
    char name[] = "Lamp\0hidden";
    db.Identify("Class Name");
    db.Serialize(name, 11, 1); // up to the first zero
    db.Identify("Light");
    db.Begin();
    bool on = true, off = false;
    char c = 'x';
    unsigned char u8 = 200;
    signed char s8 = -5;
    unsigned short u16 = 65535;
    short s16 = -32768;
    qel::s32 s32 = -7;
    qel::u64 u64 = 18446744073709551615ull;
    qel::s64 s64 = -9223372036854775807ll - 1;
    float f = 0.1f;
    double d = 0.1, nan = std::copysign(NAN, -1.0); // "nan" on Windows if left to the runtime
    db.Identify("Flags");
    db.Serialize(on);
    db.Serialize(off); // a second value after one name: its own line
    db.Identify("Chars");
    db.Serialize(c);
    db.Identify("Small");
    db.Serialize(u8);
    db.Serialize(s8);
    db.Identify("Short");
    db.Serialize(u16);
    db.Serialize(s16);
    db.Identify("Word");
    db.Serialize(s32);
    db.Identify("Long");
    db.Serialize(u64);
    db.Serialize(s64);
    db.Identify("Real");
    db.Serialize(f);
    db.Serialize(d);
    db.Serialize(nan);
    char pair[4] = {'a', 0, 'b', 0};
    db.Identify("Strided");
    db.Serialize(pair, 2, 2); // not a string: element by element
    db.Identify("Inner");
    db.Begin();
    db.End();
    db.End();
    EXPECT_EQ(Text(out), "File Version: u32(3)\n"
                         "Class Name: char[](Lamp)\n"
                         "Light: {\n"
                         "  Flags: bool(True)\n"
                         "  bool(False)\n"
                         "  Chars: char(x)\n"
                         "  Small: u8(200)\n"
                         "  s8(-5)\n"
                         "  Short: u16(65535)\n"
                         "  s16(-32768)\n"
                         "  Word: s32(-7)\n"
                         "  Long: u64(18446744073709551615)\n"
                         "  s64(-9223372036854775808)\n"
                         "  Real: f32(0.1000000015)\n"
                         "  f64(0.10000000000000000555)\n"
                         "  f64(-nan)\n"
                         "  Strided: char(a)\n"
                         "  char(b)\n"
                         "  Inner: {\n"
                         "  }\n"
                         "}\n");
    EXPECT_EQ(db.GetLevel(), 0);
}

TEST(FileArchiveDatabase, BlocksAfterAValueAndEndsBelowTheOuterLevel)
{
    qel::OutputMemoryStream out;
    qel::FileArchiveDatabase db(&out);
    char text[] = "a)b\nc"; // neither quoted nor escaped
    db.Identify("S");
    db.Serialize(text, 5, 1);
    db.Begin(); // after a value: indented (level 0: nothing), brace alone
    u32 one = 1;
    db.Serialize(one); // the value-written state survives the Begin
    db.End();
    db.End(); // level -1: no indentation
    db.Identify("T");
    db.Serialize(one);
    EXPECT_EQ(Text(out), "S: char[](a)b\nc)\n"
                         "{\n"
                         "  u32(1)\n"
                         "}\n"
                         "}\n"
                         "T: u32(1)\n");
    EXPECT_EQ(db.GetLevel(), -1);
}

} // namespace
