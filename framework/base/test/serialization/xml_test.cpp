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
#include <limits>

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
    EXPECT_EQ(read.d, -1.0 / 3);
    EXPECT_EQ(read.i64, LLONG_MIN);

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
    EXPECT_EQ(read.hostLongs[1], LONG_MAX);
    EXPECT_EQ(std::memcmp(read.chars, "a\0b\nc", 5), 0);
    EXPECT_STREQ(read.name, "sample");
}

TEST(XmlRoundTrip, FloatingPointValuesComeBackBitForBit)
{
    const double doubles[] = {0.1,
                              -0.0,
                              5e-324,
                              DBL_MIN,
                              DBL_MAX,
                              -1e20,
                              1.0 / 3,
                              std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()};
    const float floats[] = {0.1f, -0.0f, 1e-45f, FLT_MIN, FLT_MAX, 16777217.0f, 3.4028e38f};
    for (double d : doubles)
    {
        double back = 7;
        const std::string document = Xml([&](qel::Serializer& s) { s.Serialize(d); });
        Read(document, [&](qel::Serializer& s) { s.Serialize(back); });
        EXPECT_EQ(Bits(back), Bits(d)) << document;
    }
    for (float f : floats)
    {
        float back = 7;
        const std::string document = Xml([&](qel::Serializer& s) { s.Serialize(f); });
        Read(document, [&](qel::Serializer& s) { s.Serialize(back); });
        EXPECT_EQ(Bits(back), Bits(f)) << document;
    }
    double nan = std::numeric_limits<double>::quiet_NaN(), back = 0;
    Read(Xml([&](qel::Serializer& s) { s.Serialize(nan); }),
         [&](qel::Serializer& s) { s.Serialize(back); });
    EXPECT_TRUE(std::isnan(back));
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
