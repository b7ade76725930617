#include "serialization/serializationtest.h"

#include "base/serialization/textformat.h"

#include <qel/binarywriter.h>
#include <qel/textwriter.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>

namespace
{

using qel::u32;

std::string Printed(const std::function<void(qel::TextWriter&)>& body)
{
    return qeltest::Text(qeltest::Written(
        [&](qel::OutputStream& stream)
        {
            qel::TextWriter writer(&stream);
            body(writer);
        }));
}

TEST(TextWriter, BlocksIndentTheirLabelledValues)
{
    EXPECT_EQ(Printed(
                  [](qel::TextWriter& w)
                  {
                      bool flag = true, off = false;
                      short s = -2;
                      w.Begin();
                      w.Identify("flag");
                      w.Serialize(flag);
                      w.Identify("pair");
                      w.Serialize(s);
                      w.Serialize(off); // a second value after one label: its own line
                      w.Identify("inner");
                      w.Begin();
                      w.Identify("x");
                      w.Serialize(s);
                      w.End();
                      w.Begin(); // empty: still balanced
                      w.End();
                      w.End();
                      w.End(); // nothing open at the outer level: nothing printed
                  }),
              "{\n"
              "    flag: True\n"
              "    pair: -2\n"
              "    False\n"
              "    inner:\n"
              "    {\n"
              "        x: -2\n"
              "    }\n"
              "    {\n"
              "    }\n"
              "}\n");
}

TEST(TextWriter, AStringCancelsTheBlockAroundIt)
{
    EXPECT_EQ(Printed(
                  [](qel::TextWriter& w)
                  {
                      char text[] = "hello";
                      u32 one = 1;
                      w.Begin();
                      w.Identify("name");
                      w.Begin();
                      w.Serialize(text, 5, 1);
                      w.End();
                      w.Identify("next"); // the label was consumed by the string
                      w.Serialize(one);
                      char spaced[3] = {'a', 'b', 'c'};
                      w.Serialize(spaced, 2, 2); // not text: one element a line
                      w.End();
                  }),
              "{\n    name: hello\n    next: 1\n    a\n    c\n}\n");

    // Outside any block, values and strings print bare.
    EXPECT_EQ(Printed(
                  [](qel::TextWriter& w)
                  {
                      char text[] = "ab";
                      u32 seven = 7;
                      w.Serialize(seven);
                      w.Serialize(text, 2, 1);
                  }),
              "7ab");
}

TEST(TextWriter, NumbersPrintTheSameOnEveryPlatform)
{
    EXPECT_EQ(Printed(
                  [](qel::TextWriter& w)
                  {
                      float f = 0.1f, big = 1e20f;
                      double d = 0.1, e = 1e20, tiny = -DBL_MIN;
                      // The runtimes disagree on these: the library does not.
                      double nan = std::copysign(NAN, -1.0), inf = HUGE_VAL;
                      float fnan = std::copysign(NAN, 1.0f), finf = -HUGE_VALF;
                      qel::s64 i64 = LLONG_MIN;
                      qel::u64 u64 = ULLONG_MAX;
                      qel::s32 i32 = INT32_MIN;
                      u32 u32v = 0xFFFFFFFFu;
                      unsigned short us = 65535;
                      signed char sc = -5;
                      unsigned char uc = 200;
                      char c = 'z';
                      w.Begin();
                      w.Identify("f");
                      w.Serialize(f), w.Serialize(big), w.Serialize(d), w.Serialize(e);
                      w.Serialize(tiny), w.Serialize(i64), w.Serialize(u64), w.Serialize(i32);
                      w.Serialize(u32v), w.Serialize(us), w.Serialize(sc), w.Serialize(uc);
                      w.Serialize(c), w.Serialize(nan), w.Serialize(inf), w.Serialize(fnan);
                      w.Serialize(finf);
                      w.End();
                  }),
              "{\n"
              "    f: 0.1000000015\n"
              "    1.00000002e+20\n"
              "    0.10000000000000000555\n"
              "    1e+20\n"
              "    -2.2250738585072013831e-308\n"
              "    -9223372036854775808\n"
              "    18446744073709551615\n"
              "    -2147483648\n"
              "    4294967295\n"
              "    65535\n"
              "    -5\n"
              "    200\n"
              "    z\n"
              "    -nan\n"
              "    inf\n"
              "    nan\n"
              "    -inf\n"
              "}\n");

    char text[48];
    EXPECT_EQ(qel::TextFormat::Print(text, sizeof text, "%I64u|%I64i|%.20lg",
                                     static_cast<unsigned long long>(1) << 63, -1ll, 1.5),
              26);
    EXPECT_STREQ(text, "9223372036854775808|-1|1.5");
}

TEST(TextWriter, PunctuationIsSettableAndResettable)
{
    EXPECT_EQ(Printed(
                  [](qel::TextWriter& w)
                  {
                      EXPECT_EQ(w.SetOpeningCharacter('<'), '{');
                      EXPECT_EQ(w.SetClosingCharacter('>'), '}');
                      EXPECT_EQ(w.SetMarkingCharacter('='), ':');
                      EXPECT_EQ(w.SetSpacingCharacter('.'), ' ');
                      EXPECT_EQ(w.SetSkipingCharacter(';'), '\n');
                      EXPECT_EQ(w.SetSkipingCharacter(';'), ';');
                      w.SetTabulation(2);
                      u32 v = 3;
                      w.Begin();
                      w.Identify("v");
                      w.Serialize(v);
                      w.End();
                      w.SetDefaults();
                      w.Begin();
                      w.Identify("v");
                      w.Reset(); // drops the open level and the pending label
                      w.Identify("w");
                      w.Serialize(v);
                  }),
              "<;..v=.3;>;{\n    v:w:3");
    qel::OutputMemoryStream stream;
    EXPECT_STREQ(qel::TextWriter(&stream).GetUniqueHeader(), "qel/text");
}

TEST(TextWriter, MirrorsABinarySaveAsItsDatabase)
{
    std::string trace;
    const qeltest::Bytes binary = qeltest::Written(
        [&](qel::OutputStream& stream)
        {
            trace = qeltest::Text(qeltest::Written(
                [&](qel::OutputStream& text)
                {
                    qel::TextWriter database(&text);
                    qel::BinaryWriter writer(&stream, &database);
                    writer.EnableScriptOutput(true);
                    bool flags[2] = {true, false};
                    float position[3] = {1, 2.5f, -3};
                    writer.Begin();
                    writer.Identify("name");
                    qel::WriteString(writer, "crate");
                    writer.Identify("flags");
                    writer.Serialize(flags, 2, 1);
                    writer.Identify("position");
                    writer.Begin();
                    writer.Serialize(position, 3, 4);
                    writer.End();
                    writer.End();
                }));
        });
    EXPECT_EQ(binary.size(), 4u + 5 + 2 + 12);
    EXPECT_EQ(trace, "{\n    name: 5\n    crate\n    flags: True\n    False\n"
                     "    position:\n    {\n        1\n        2.5\n        -3\n    }\n}\n");
}

} // namespace
