// The XML writer and reader: every value back bit for bit, the document's
// exact form, documents edited by hand, and documents that do not match or
// are cut short raising XMLFormatError.
#include "serialization/serializationtest.h"

#include <qel/inputmemorystream.h>
#include <qel/xmlreader.h>
#include <qel/xmlwriter.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <vector>

#ifdef QEL_TEST_PUGIXML
#include <pugixml.hpp>
#endif

namespace
{

using qel::u32;
using qel::u64;
using qel::XMLFormatError;
using qel::XMLReader;
using qel::XMLWriter;
using qeltest::Bytes;
using qeltest::Record;
using qeltest::Sample;

std::string Xml(const std::function<void(qel::Serializer&)>& routine)
{
    return qeltest::Text(qeltest::Written(
        [&](qel::OutputStream& stream)
        {
            XMLWriter writer(&stream);
            routine(writer);
            writer.Finish();
        }));
}

void Read(const std::string& text, const std::function<void(qel::Serializer&)>& routine)
{
    qeltest::BytesInputStream stream(Bytes(text.begin(), text.end()));
    XMLReader reader(&stream);
    routine(reader);
    reader.Finish();
}

// The message of the error reading `text` raises, or "" when it reads.
std::string ErrorOf(const std::string& text, const std::function<void(qel::Serializer&)>& routine)
{
    try
    {
        Read(text, routine);
    }
    catch (const XMLFormatError& error)
    {
        return error.GetReason();
    }
    return "";
}

template <class T>
u64 Bits(T v)
{
    u64 bits = 0;
    std::memcpy(&bits, &v, sizeof v);
    return bits;
}

TEST(XmlRoundTrip, EveryTypeAndArrayFormReadsBackAndWritesTheSameDocument)
{
    Record written = Sample();
    const std::string document = Xml([&](qel::Serializer& s) { written.Serialize(s); });
    Record read;
    read.u32s[1] = 77; // between the strided elements: must stay
    Read(document, [&](qel::Serializer& s) { read.Serialize(s); });
    EXPECT_EQ(read.u32s[1], 77u);
    read.u32s[1] = 0;
    EXPECT_EQ(Xml([&](qel::Serializer& s) { read.Serialize(s); }), document);

    // A memory stream does not report its end: the reader takes the
    // document's length and reads nothing past it.
    const std::string followed = document + "<junk>";
    qel::InputMemoryStream memory(reinterpret_cast<const unsigned char*>(followed.data()),
                                  u32(followed.size()));
    XMLReader bounded(&memory, document.size());
    Record again;
    again.Serialize(bounded);
    bounded.Finish();
    EXPECT_EQ(memory.GetPosition(), u32(document.size()));
}

// Doubles and floats by their bits, and the text each is written as, on
// every platform; then the bits read back, single and as arrays.
TEST(XmlRoundTrip, RealsAreTheSameTextEverywhereAndComeBackBitForBit)
{
    struct Real
    {
        u64 bits;
        const char* text;
    };
    const Real doubles[] = {
        {0x3FB999999999999Aull, "0.10000000000000000555"},
        {0x8000000000000000ull, "-0"},
        {0x0000000000000001ull, "4.9406564584124654418e-324"},
        {0x0010000000000000ull, "2.2250738585072013831e-308"},
        {0x7FEFFFFFFFFFFFFFull, "1.7976931348623157081e+308"},
        {0xC415AF1D78B58C40ull, "-1e+20"},
        {0x7FF0000000000000ull, "inf"},
        {0xFFF0000000000000ull, "-inf"},
        {0x7FF8000000000000ull, "nan"},
        {0xFFF8000000000000ull, "-nan"},
        {0x7FF8000000000123ull, "nan(0x8000000000123)"}, // a payload
        {0x7FF0000000000001ull, "nan(0x1)"},             // signalling
        {0xFFF4000000000000ull, "-nan(0x4000000000000)"},
    };
    const Real floats[] = {
        {0x3DCCCCCD, "0.1000000015"},
        {0x80000000, "-0"},
        {0x00000001, "1.401298464e-45"},
        {0x7F7FFFFF, "3.402823466e+38"},
        {0x4B800001, "16777218"},
        {0xFF800000, "-inf"},
        {0x7FC00000, "nan"},
        {0xFFC00000, "-nan"},
        {0x7FC00123, "nan(0x400123)"},
        {0x7F800001, "nan(0x1)"},
    };
    // The values, kept in memory as bytes only.
    std::vector<double> d(std::size(doubles));
    std::vector<float> f(std::size(floats));
    std::string expected =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<qel format=\"qel/xml0\">\n";
    std::string array;
    for (std::size_t i = 0; i < d.size(); ++i)
    {
        std::memcpy(&d[i], &doubles[i].bits, 8);
        expected += std::string("    <value>") + doubles[i].text + "</value>\n";
        array += (i ? " " : "") + std::string(doubles[i].text);
    }
    expected += "    <value count=\"" + std::to_string(d.size()) + "\">" + array + "</value>\n";
    array.clear();
    for (std::size_t i = 0; i < f.size(); ++i)
    {
        const u32 bits = u32(floats[i].bits);
        std::memcpy(&f[i], &bits, 4);
        expected += std::string("    <value>") + floats[i].text + "</value>\n";
        array += (i ? " " : "") + std::string(floats[i].text);
    }
    expected +=
        "    <value count=\"" + std::to_string(f.size()) + "\">" + array + "</value>\n</qel>\n";

    auto routine = [](std::vector<double>& d, std::vector<float>& f)
    {
        return [&](qel::Serializer& s)
        {
            for (double& each : d)
                s.Serialize(each);
            s.Serialize(d.data(), u32(d.size()), 8);
            for (float& each : f)
                s.Serialize(each);
            s.Serialize(f.data(), u32(f.size()), 4);
        };
    };
    EXPECT_EQ(Xml(routine(d, f)), expected);

    std::vector<double> dBack(d.size());
    std::vector<float> fBack(f.size());
    const auto same = [](const auto& a, const auto& b)
    { return std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0; };
    // Each single value, then the array, into the same places.
    Read(expected,
         [&](qel::Serializer& s)
         {
             for (double& each : dBack)
                 s.Serialize(each);
             EXPECT_TRUE(same(dBack, d));
             dBack.assign(d.size(), 7.0);
             s.Serialize(dBack.data(), u32(dBack.size()), 8);
             for (float& each : fBack)
                 s.Serialize(each);
             EXPECT_TRUE(same(fBack, f));
             fBack.assign(f.size(), 7.0f);
             s.Serialize(fBack.data(), u32(fBack.size()), 4);
         });
    EXPECT_TRUE(same(dBack, d));
    EXPECT_TRUE(same(fBack, f));

    // Hand-written forms, and NaNs whose fraction cannot be.
    const Real written[] = {
        {0x7FF8000000000000ull, " NaN "},
        {0xFFF0000000000001ull, "-NAN(0X1)"},
        {0x7FF0000000000000ull, "Infinity"},
        {0, "nan(0x0)"},
        {0, "nan(0x10000000000000)"},
        {0, "nan(1)"},
        {0, "nan()"},
        {0, "nan(0x1"},
    };
    for (const Real& real : written)
    {
        const std::string document = std::string("<qel><value>") + real.text + "</value></qel>";
        double v = 0;
        const std::string error = ErrorOf(document, [&](qel::Serializer& s) { s.Serialize(v); });
        EXPECT_EQ(error.empty(), real.bits != 0) << real.text << ": " << error;
        EXPECT_EQ(Bits(v), real.bits) << real.text;
    }
}

TEST(XmlFormat, TheDocumentOfASmallStructure)
{
    const std::string document = Xml(
        [](qel::Serializer& s)
        {
            float radius = 2.5f;
            short xy[2] = {1, -2};
            bool lit = true;
            char grade = '<';
            s.Identify("radius"), s.Serialize(radius);
            s.Identify("position"), s.Begin();
            s.Identify("x"), s.Serialize(xy[0]);
            s.Identify("y"), s.Serialize(xy[1]);
            s.End();
            s.Identify("name"), qel::WriteString(s, "Lamp & \"2\"");
            s.Identify("ids"), s.Serialize(xy, 2, 2);
            s.Identify("2nd item"), s.Serialize(lit);
            s.Serialize(grade);
            s.Identify("raw"), qel::WriteString(s, "a\0b", 3);
            s.Begin(), s.End();
        });
    EXPECT_EQ(document, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                        "<qel format=\"qel/xml0\">\n"
                        "    <radius>2.5</radius>\n"
                        "    <position>\n"
                        "        <x>1</x>\n"
                        "        <y>-2</y>\n"
                        "    </position>\n"
                        "    <name length=\"10\">Lamp &amp; \"2\"</name>\n"
                        "    <ids count=\"2\">1 -2</ids>\n"
                        "    <value name=\"2nd item\">True</value>\n"
                        "    <value>&lt;</value>\n"
                        "    <raw length=\"3\" encoding=\"hex\">610062</raw>\n"
                        "    <block>\n"
                        "    </block>\n"
                        "</qel>\n");
}

TEST(XmlRoundTrip, TextThatXmlCannotHoldAndStringsReadInPieces)
{
    const std::string texts[] = {"a<b>&c\"d'e]]>f",          "line\r\nend\r",
                                 std::string("z\0y\x01", 4), "\xC3\xA9t\xC3\xA9",
                                 "\xFF\xFE not UTF-8",       std::string(700, 'x')};
    for (const std::string& text : texts)
    {
        std::string document = Xml(
            [&](qel::Serializer& s)
            {
                s.Identify("t"), qel::WriteString(s, text.data(), u32(text.size()));
                u32 after = 9;
                s.Identify("after"), s.Serialize(after);
            });
        // Read whole, and cut to 16 characters: the rest is dropped and the
        // next value still reads.
        for (u32 capacity : {1024u, 17u})
        {
            char buffer[1024];
            u32 after = 0;
            Read(document,
                 [&](qel::Serializer& s)
                 {
                     s.Identify("t"), qel::ReadString(s, buffer, capacity);
                     s.Identify("after"), s.Serialize(after);
                 });
            EXPECT_EQ(std::string(buffer, std::min<std::size_t>(text.size(), capacity - 1)),
                      text.substr(0, capacity - 1));
            EXPECT_EQ(after, 9u);
        }
    }
}

TEST(XmlReader, DocumentsEditedByHand)
{
    const std::string document = "\xEF\xBB\xBF<?xml version='1.0'?>\r\n"
                                 "<!DOCTYPE qel [ <!ENTITY x 'y'> ]>\r\n"
                                 "<!-- a scene -->\r\n"
                                 "<qel>\r\n"
                                 "  <?editor keep?>\r\n"
                                 "  <count> 42 </count><!-- the answer -->\r\n"
                                 "  <name length='5'>&#x41;&#66;<![CDATA[<&]]>&gt;</name>\r\n"
                                 "  <pos><x>\t-1.5e0</x><y/></pos>\r\n"
                                 "  <flags count=\"2\">\r\n true\r\n 0 </flags>\r\n"
                                 "</qel>\r\n<!-- end -->\r\n";
    short count = 0;
    char name[8] = {};
    double x = 0;
    char y[1] = {'?'};
    bool flags[2] = {false, true};
    Read(document,
         [&](qel::Serializer& s)
         {
             s.Identify("count"), s.Serialize(count);
             s.Identify("name"), qel::ReadString(s, name, sizeof name);
             s.Identify("pos"), s.Begin();
             s.Identify("x"), s.Serialize(x);
             s.Identify("y"), s.Serialize(y, 0, 1);
             s.End();
             s.Identify("flags"), s.Serialize(flags, 2, 1);
         });
    EXPECT_EQ(count, 42);
    EXPECT_STREQ(name, "AB<&>");
    EXPECT_EQ(x, -1.5);
    EXPECT_TRUE(flags[0]);
    EXPECT_FALSE(flags[1]);
}

TEST(XmlReader, MismatchesNameTheElementAndTheLine)
{
    const std::string document = Xml(
        [](qel::Serializer& s)
        {
            u32 v = 300;
            s.Identify("radius"), s.Serialize(v);
            s.Identify("pos"), s.Begin();
            s.Identify("x"), s.Serialize(v);
            s.End();
        });
    unsigned char small = 0;
    u32 v = 0;
    EXPECT_EQ(ErrorOf(document, [&](qel::Serializer& s) { s.Identify("name"), s.Serialize(v); }),
              "XML line 3: expected element 'name', found 'radius'");
    EXPECT_EQ(
        ErrorOf(document, [&](qel::Serializer& s) { s.Identify("radius"), s.Serialize(small); }),
        "XML line 3: 'radius' holds '300', which is no unsigned char");
    EXPECT_EQ(ErrorOf(document,
                      [&](qel::Serializer& s)
                      {
                          s.Identify("radius"), s.Serialize(v);
                          s.Identify("pos"), s.Begin(), s.End();
                      }),
              "XML line 5: 'pos' holds more than was read");
    EXPECT_EQ(ErrorOf(document,
                      [&](qel::Serializer& s)
                      {
                          s.Identify("radius"), s.Serialize(v);
                          s.Identify("pos"), s.Begin();
                          s.Identify("x"), s.Serialize(v);
                          s.Identify("z"), s.Serialize(v);
                      }),
              "XML line 6: expected element 'z', found the end of 'pos'");
    EXPECT_EQ(ErrorOf("<qel><v>&bogus;</v></qel>",
                      [&](qel::Serializer& s) { s.Identify("v"), s.Serialize(v); }),
              "XML line 1: unknown reference '&bogus' in 'v'");
}

TEST(XmlReader, CutOrDamagedDocumentsRaiseErrorsNeverCrash)
{
    const Record written = Sample();
    const std::string document = Xml([&](qel::Serializer& s) { Record(written).Serialize(s); });
    const auto readRecord = [](qel::Serializer& s)
    {
        Record r;
        r.Serialize(s);
    };
    // Every cut short of the last line end loses something.
    for (std::size_t cut = 0; cut + 1 < document.size(); ++cut)
    {
        const std::string error = ErrorOf(document.substr(0, cut), readRecord);
        ASSERT_NE(error, "") << "cut at " << cut;
    }
    for (std::size_t at = 0; at < document.size(); at += 3)
    {
        // Any damage either reads (a digit for a digit) or is an error.
        for (char c : {'<', '>', '&', '"', 'x', '\0'})
        {
            std::string damaged = document;
            damaged[at] = c;
            try
            {
                Read(damaged, readRecord);
            }
            catch (const XMLFormatError&)
            {
            }
        }
    }
}

// Blocks nested a million deep, read on the thread's default stack: the
// reader keeps the open blocks in a list of its own. Cut inside, the
// document is an error like any other.
TEST(XmlReader, AMillionNestedBlocks)
{
    const u32 depth = 1000000;
    std::string document = "<qel>\n";
    document.reserve(depth * 7 + 32);
    for (u32 i = 0; i < depth; ++i)
        document += "<b>";
    document += "<v>42</v>";
    for (u32 i = 0; i < depth; ++i)
        document += "</b>";
    document += "\n</qel>\n";
    u32 value = 0;
    const auto routine = [&](qel::Serializer& s)
    {
        for (u32 i = 0; i < depth; ++i)
            s.Identify("b"), s.Begin();
        s.Identify("v"), s.Serialize(value);
        for (u32 i = 0; i < depth; ++i)
            s.End();
    };
    Read(document, routine);
    EXPECT_EQ(value, 42u);
    EXPECT_EQ(ErrorOf(document.substr(0, document.size() / 2), routine),
              "XML line 2: the document ends inside 'b'");
}

#ifdef QEL_TEST_PUGIXML
TEST(XmlFormat, PugixmlReadsTheSameTree)
{
    Record written = Sample();
    const std::string document = Xml([&](qel::Serializer& s) { written.Serialize(s); });
    pugi::xml_document parsed;
    ASSERT_TRUE(parsed.load_buffer(document.data(), document.size()));
    const pugi::xml_node root = parsed.child("qel");
    EXPECT_STREQ(root.attribute("format").value(), "qel/xml0");
    EXPECT_STREQ(root.child("single").child("value").text().get(), "q");
    EXPECT_STREQ(root.last_child().attribute("length").value(), "6");
    EXPECT_STREQ(root.last_child().text().get(), "sample");
    EXPECT_EQ(std::distance(root.child("single").begin(), root.child("single").end()), 14);
}
#endif

} // namespace
