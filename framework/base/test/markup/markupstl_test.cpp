// The markup document: reading what users meet in XML, the first error of
// ill-formed documents, and seeded edits checked against a model tree, the
// edited document's own index against the same text loaded afresh.
#include <qel/markupstl.h>

#include "support/environment.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#ifdef QEL_TEST_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef QEL_TEST_EXPAT
#include <expat.h>
#endif

namespace
{

using qel::MarkupSTL;

std::string S(const MarkupSTL::String& s)
{
    return std::string(s.data(), s.size());
}

const char* const kScene = "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n"
                           "<!DOCTYPE scene [ <!ELEMENT scene ANY>\n"
                           "  <!ATTLIST lamp power NMTOKEN #REQUIRED shade CDATA 'paper'> ]>\n"
                           "<!-- a room -->\n"
                           "<scene name='Room &amp; hall' lights=\"2\">\n"
                           "  <lamp power=\"60\" shade='linen'>Desk &lt;left&gt;</lamp>\n"
                           "  <?editor keep?>\n"
                           "  <lamp power=\" 40 \"><![CDATA[<raw> & ]]>&#x41;&#66;</lamp>\n"
                           "  <chair/>\n"
                           "  <table legs='4'>\r\n    <top>oak</top>\r\n  </table>\n"
                           "</scene>\n";

TEST(MarkupRead, NavigatesAndDecodesWhatUsersMeet)
{
    MarkupSTL doc(kScene);
    ASSERT_TRUE(doc.IsWellFormed()) << doc.GetError();
    EXPECT_EQ(doc.GetElementCount(), 6u);
    EXPECT_FALSE(doc.FindElement("lamp")); // the document level holds the root only
    ASSERT_TRUE(doc.FindElement("scene"));
    EXPECT_EQ(S(doc.GetAttribute("name")), "Room & hall");
    EXPECT_EQ(S(doc.GetAttributeName(1)), "lights");
    EXPECT_EQ(S(doc.GetAttributeName(2)), "");
    ASSERT_TRUE(doc.FindChildElement("table"));
    EXPECT_EQ(S(doc.GetChildAttribute("legs")), "4");
    EXPECT_EQ(S(doc.GetChildData()), ""); // it has children

    // Into the scene: the table, the child position, becomes the main one.
    ASSERT_TRUE(doc.IntoElement());
    EXPECT_EQ(S(doc.GetTagName()), "table");
    doc.ResetMainPosition();
    std::vector<std::string> data;
    while (doc.FindElement("lamp"))
        data.push_back(S(doc.GetData()) + "/" + S(doc.GetAttribute("power")) + "/" +
                       S(doc.GetAttribute("shade")));
    EXPECT_EQ(data, (std::vector<std::string>{"Desk <left>/60/linen", "<raw> & AB/40/paper"}));
    doc.ResetMainPosition();
    ASSERT_TRUE(doc.FindElement("table"));
    const MarkupSTL::Position table = doc.GetPosition();
    ASSERT_TRUE(doc.FindChildElement());
    EXPECT_EQ(S(doc.GetChildTagName()), "top");
    EXPECT_EQ(S(doc.GetChildData()), "oak");
    EXPECT_FALSE(doc.FindElement());
    doc.SetPosition(table);
    EXPECT_EQ(S(doc.GetTagName()), "table");
    ASSERT_TRUE(doc.OutOfElement());
    EXPECT_EQ(S(doc.GetTagName()), "scene");
    EXPECT_FALSE(doc.OutOfElement());
    EXPECT_FALSE(doc.HasAttribute("power"));

    // The second lamp's shade is its declared default, listed after its own
    // attributes until it is set, which writes it into the tag; an added
    // lamp takes the default too.
    doc.IntoElement();
    doc.ResetMainPosition();
    ASSERT_TRUE(doc.FindElement("lamp") && doc.FindElement("lamp"));
    EXPECT_EQ(S(doc.GetAttributeName(1)), "shade");
    ASSERT_TRUE(doc.SetAttribute("shade", "silk"));
    EXPECT_EQ(S(doc.GetAttributeName(2)), "");
    EXPECT_NE(S(doc.GetDocument()).find("<lamp power=\" 40 \" shade=\"silk\">"), std::string::npos);
    ASSERT_TRUE(doc.AddElement("lamp"));
    EXPECT_EQ(S(doc.GetAttributeName(0)), "shade");
    EXPECT_EQ(S(doc.GetAttribute("shade")), "paper");

    // Reloaded from its own text: gathered after the edits, then stored
    // (a reload reuses the store), then a part of it.
    const std::string edited = S(doc.GetDocument());
    ASSERT_TRUE(doc.SetDocument(doc.GetDocument().c_str()));
    EXPECT_EQ(S(doc.GetDocument()), edited);
    ASSERT_TRUE(doc.SetDocument(doc.GetDocument().c_str()));
    EXPECT_EQ(S(doc.GetDocument()), edited);
    const std::size_t root = edited.find("<scene");
    ASSERT_TRUE(doc.SetDocument(doc.GetDocument().c_str() + root));
    EXPECT_EQ(S(doc.GetDocument()), edited.substr(root));
    ASSERT_TRUE(doc.FindElement("scene"));
    EXPECT_EQ(S(doc.GetAttribute("name")), "Room & hall");
}

TEST(MarkupCheck, ACutOrAZeroByteIsAnError)
{
    // A zero byte inside a reference is no entity name's end.
    MarkupSTL zero;
    EXPECT_FALSE(zero.SetDocument("<a>&lt\0\0\0;</a>", 13));
    EXPECT_EQ(zero.GetErrorColumn(), 4u);

    // Cut anywhere inside the root, the scene is an error; never a crash.
    const std::string scene = kScene;
    const std::size_t rootEnd = scene.rfind("</scene>") + 8;
    for (std::size_t cut = 0; cut < scene.size(); ++cut)
    {
        MarkupSTL doc;
        const bool good = doc.SetDocument(scene.data(), qel::u32(cut));
        if (cut > scene.find("<scene"))
        {
            EXPECT_EQ(good, cut >= rootEnd) << cut;
        }
        EXPECT_EQ(doc.FindElement("scene"), cut >= rootEnd) << cut;
    }
}

// ---- XML as real files are written --------------------------------------------

std::string Utf16(const std::string& ascii, bool little, bool mark)
{
    std::string bytes = mark ? (little ? "\xFF\xFE" : "\xFE\xFF") : "";
    for (char c : ascii)
    {
        const char unit[2] = {little ? c : '\0', little ? '\0' : c};
        bytes.append(unit, 2);
    }
    return bytes;
}

// Ten levels of ten references each to "lol", then `rest`.
std::string Laughs(const char* rest)
{
    std::string text = "<!DOCTYPE a [<!ENTITY l0 \"lol\">";
    for (int i = 1; i <= 10; ++i)
    {
        text += "<!ENTITY l" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j)
            text += "&l" + std::to_string(i - 1) + ";";
        text += "\">";
    }
    return text + rest;
}

// Each document read (line 0) with the root's data and attributes, listed
// as GetAttributeName gives them, and its text unchanged; or refused at
// LINE:COLUMN with a message holding `error`, with no elements and taking no
// edit. A row refused in strict mode is read in lenient mode.
TEST(MarkupXml, EncodingsEntitiesLineEndsAndStrictness)
{
    const struct
    {
        std::string text;
        bool strict;
        const char* data;
        const char* attributes;
        unsigned line, column;
        const char* error;
    } cases[] = {
        // encodings
        {Utf16("<a a='\xE9'>z</a>", true, true), false, "z", "a='\xC3\xA9'", 0, 0, ""},
        {Utf16("<?xml version='1.0' encoding='UTF-16'?><a>z</a>", false, false), true, "z", "", 0,
         0, ""},
        {"<?xml version='1.0' encoding='ISO-8859-1'?>\n<a a='\xE9'>\xFF</a>", true, "\xC3\xBF",
         "a='\xC3\xA9'", 0, 0, ""},
        {"<?xml version='1.0' encoding='Shift_JIS'?><a/>", false, "", "", 1, 31, "Shift_JIS"},
        {"<?xml version='1.0' encoding='utf-16'?><a/>", false, "", "", 1, 31, "utf-16"},
        {Utf16("<?xml version='1.0' encoding='UTF-8'?><a/>", true, true), false, "", "", 1, 31,
         "UTF-8"},
        {std::string("<\0a\0\0\xDC", 6), false, "", "", 1, 3, "UTF-16"},
        // the internal subset
        {"<!DOCTYPE a [<!ENTITY e 'p&#10;q'>]><a a='&e;'>&e;</a>", true, "p\nq", "a='p q'", 0, 0,
         ""},
        {"<!DOCTYPE a [<!ENTITY e '&f;!'><!ENTITY f '&#38;amp;'>]><a>&e;</a>", false, "&!", "", 0,
         0, ""},
        {"<!DOCTYPE a [<!ENTITY x ']'><!-- ] --><?p ]?><!ATTLIST a b CDATA ']'>]><a>&x;</a>", true,
         "]", "b=']'", 0, 0, ""},
        {Laughs("]>\n<a>&l10;</a>"), false, "", "", 2, 4, "expan"},
        {"<!DOCTYPE a [<!ENTITY a '&b;'><!ENTITY b '&a;'>]>\n<a>&a;</a>", false, "", "", 2, 4,
         "itself"},
        {"<!DOCTYPE a [<!ENTITY m '<b/>'>]><a>&m;</a>", false, "", "", 1, 37, "markup"},
        {"<!DOCTYPE a [<!ENTITY l '&lt;'><!ENTITY m '&#38;#60;'>]><a a='&l;&m;'>&l;&m;</a>", true,
         "<<", "a='<<'", 0, 0, ""},
        {"<!DOCTYPE a [<!ENTITY x SYSTEM 'x.xml'>]><a>&x;y</a>", false, "&x;y", "", 0, 0, ""},
        {"<!DOCTYPE a [<!ENTITY x SYSTEM 'x.xml'>]><a a='&x;'/>", false, "", "", 1, 48, "external"},
        {"<!DOCTYPE a [<!ENTITY u SYSTEM 'u' NDATA n>]><a>&u;</a>", false, "", "", 1, 49,
         "unparsed"},
        {"<!DOCTYPE a SYSTEM 'a.dtd'><a a='&nbsp;'>&nbsp;x</a>", false, "&nbsp;x", "a='&nbsp;'", 0,
         0, ""},
        {"<?xml version='1.0' standalone='yes'?><!DOCTYPE a SYSTEM 'a.dtd'><a>&nbsp;</a>", false,
         "", "", 1, 69, "nbsp"},
        {"<a>\n &nbsp;</a>", false, "", "", 2, 2, "nbsp"},
        {"<!DOCTYPE a [<!ENTITY e 'x'>", false, "", "", 1, 29, "DOCTYPE"},
        // line ends and attribute values
        {"<a a='x\r\ny\tz&#10;&#13;w'>x\r\ny\rz<![CDATA[1\r\n2\r3]]></a>", false, "x\ny\nz1\n2\n3",
         "a='x y z\n\rw'", 0, 0, ""},
        // attribute-list declarations: defaults after the element's own attributes, in the
        // order declared; the first declaration binds; types other than CDATA collapse spaces
        {"<!DOCTYPE a [<!ATTLIST a b CDATA 'x' c CDATA #FIXED 'y' d CDATA #IMPLIED e ID "
         "#REQUIRED>\n<!ATTLIST a f CDATA 'w' c CDATA 'late'><!ATTLIST z g CDATA 'z'>]>"
         "<a e=' 1 ' b='2'/>",
         true, "", "e='1' b='2' c='y' f='w'", 0, 0, ""},
        {"<!DOCTYPE a [<!ATTLIST a a NMTOKENS #IMPLIED b (x|y) ' y ' c CDATA ' p  q '>]>"
         "<a a='\t x&#32;&#32;y\r\n z&#10;'/>",
         true, "", "a='x y z\n' b='y' c=' p  q '", 0, 0, ""},
        {"<!DOCTYPE a [<!ENTITY e 'p&#10;q'><!ATTLIST a a ID ' &e;&#10;&amp;'>]><a/>", true, "",
         "a='p q\n&'", 0, 0, ""},
        {"<!DOCTYPE a SYSTEM 'a.dtd' [<!ATTLIST a a CDATA '&e;&f;!'><!ENTITY e 'x'>]><a/>", true,
         "", "a='&e;&f;!'", 0, 0, ""},
        // declarations after a parameter entity reference are used only when standalone
        {"<!DOCTYPE a [<!ATTLIST a b CDATA 'x'>%p;<!ATTLIST a c CDATA 'y'><!ENTITY e 'z'>]>"
         "<a>&e;</a>",
         true, "&e;", "b='x'", 0, 0, ""},
        {"<?xml version='1.0' standalone='yes'?><!DOCTYPE a [%p;<!ATTLIST a c CDATA 'y'>"
         "<!ENTITY e 'z'>]><a>&e;</a>",
         true, "z", "c='y'", 0, 0, ""},
        // ill-formed in either mode
        {"<a>\n  <b></c>\n</a>", false, "", "", 2, 8, "does not match"},
        {"<a x='1' x='2'/>", false, "", "", 1, 10, "twice"},
        // Among many attributes: the 17th repeats the 16th, the 19th the first.
        {"<a b='' c='' d='' e='' f='' g='' h='' i='' j='' k='' l='' m='' n='' o='' p='' q='' "
         "q=''/>",
         false, "", "", 1, 84, "twice"},
        {"<a b='' c='' d='' e='' f='' g='' h='' i='' j='' k='' l='' m='' n='' o='' p='' q='' r='' "
         "s='' b=''/>",
         false, "", "", 1, 94, "twice"},
        {"<a>\n <b>&nope;</b></a>", false, "", "", 2, 5, "'nope'"},
        {"<a><!-- open </a>", false, "", "", 1, 4, "comment"},
        {"<a><!--></a>", false, "", "", 1, 4, "comment"},
        {"<a></a>\n<b/>", false, "", "", 2, 1, "second root"},
        {"text<a/>", false, "", "", 1, 1, "outside the root"},
        {"<a x=1/>", false, "", "", 1, 6, "quoted"},
        {"<a>", false, "", "", 1, 4, "ends inside"},
        {"<a><b x='<'/></a>", false, "", "", 1, 10, "'<'"},
        {"<a><![CDATA[ x </a>", false, "", "", 1, 4, "CDATA"},
        {"<1a/>", false, "", "", 1, 2, "name"},
        {"<a></a>trailing", false, "", "", 1, 8, "outside the root"},
        // lenient unless strict
        {"", true, "", "", 1, 1, "root"},
        {"<!-- c -->", true, "", "", 1, 11, "root"},
        {"<a><!-- x -- y --></a>", true, "", "", 1, 11, "--"},
        {"<a><!-- x ---></a>", true, "", "", 1, 11, "--"},
        {"<a><!--->-->y</a>", true, "y", "", 0, 0, ""},
        {"<a>\xFF</a>", true, "", "", 1, 4, "UTF-8"},
        {"<a>\n\x01</a>", true, "", "", 2, 1, "control"},
        {"<a>x]]></a>", true, "", "", 1, 5, "]]>"},
        {"<a/><?xml version='1.0'?>", true, "", "", 1, 5, "declaration"},
        {"<!DOCTYPE a><!DOCTYPE a><a/>", true, "", "", 1, 13, "DOCTYPE"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA 'x' c BOGUS 'y'><!ATTLIST a d CDATA 'w'>]><a/>", false,
         "", "d='w'", 0, 0, ""},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA 'x' c BOGUS 'y'>]><a/>", true, "", "", 1, 40, "type"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA>]><a/>", true, "", "", 1, 33, "white space"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA 'x'c CDATA 'y'>]><a/>", true, "", "", 1, 37, "'>'"},
        {"<!DOCTYPE a [<!ATTLIST a b (x|) 'x'>]><a/>", true, "", "", 1, 31, "name token"},
        {"<!DOCTYPE a [<!ATTLIST a b (x y) 'x'>]><a/>", true, "", "", 1, 31, "'|'"},
        {"<!DOCTYPE a [<!ATTLIST a b NOTATION (1x) #IMPLIED>]><a/>", true, "", "", 1, 38,
         "notation"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA #DEFAULT>]><a/>", true, "", "", 1, 34, "#FIXED"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA #FIXED>]><a/>", true, "", "", 1, 40, "white space"},
        {"<!DOCTYPE a [<!ATTLIST a %p;>]><a/>", true, "", "", 1, 26, "name"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA 'x<'>]><a/>", true, "", "", 1, 36, "'<'"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA '&x'>]><a/>", true, "", "", 1, 35, "reference"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA '&u;'>]><a/>", true, "", "", 1, 35, "'u'"},
        {"<!DOCTYPE a [<!ATTLIST a b CDATA '&e;'><!ENTITY e 'x'>]><a/>", true, "", "", 1, 35,
         "after"},
        {"<!DOCTYPE a [<!ENTITY x SYSTEM 'x'><!ATTLIST a b CDATA '&x;'>]><a/>", true, "", "", 1, 57,
         "external"},
        {Laughs("\n<!ATTLIST a a CDATA '&l10;'>]>\n<a/>"), true, "", "", 2, 22, "expan"},
    };
    for (const auto& c : cases)
    {
        MarkupSTL doc;
        doc.SetStrict(c.strict);
        const bool good = doc.SetDocument(c.text.data(), qel::u32(c.text.size()));
        if (c.line == 0)
        {
            ASSERT_TRUE(good) << c.text << ": " << doc.GetError();
            ASSERT_TRUE(doc.FindElement("a")) << c.text;
            EXPECT_EQ(S(doc.GetData()), c.data) << c.text;
            std::string attributes;
            for (qel::u32 i = 0; !doc.GetAttributeName(i).empty(); ++i)
            {
                const std::string name = S(doc.GetAttributeName(i));
                EXPECT_TRUE(doc.HasAttribute(name.c_str())) << c.text;
                attributes +=
                    (i ? " " : "") + name + "='" + S(doc.GetAttribute(name.c_str())) + "'";
            }
            EXPECT_EQ(attributes, c.attributes) << c.text;
            if (std::string(doc.GetEncoding()) == "UTF-8")
            {
                EXPECT_EQ(S(doc.GetDocument()), c.text);
            }
            continue;
        }
        EXPECT_FALSE(good) << c.text;
        EXPECT_EQ(doc.GetElementCount(), 0u) << c.text;
        EXPECT_FALSE(doc.FindElement() || doc.AddElement("x")) << c.text;
        EXPECT_EQ(doc.GetErrorLine(), c.line) << c.text << ": " << doc.GetError();
        EXPECT_EQ(doc.GetErrorColumn(), c.column) << c.text << ": " << doc.GetError();
        EXPECT_NE(std::string(doc.GetError()).find(c.error), std::string::npos)
            << c.text << ": " << doc.GetError();
        if (c.strict)
        {
            MarkupSTL lenient;
            EXPECT_TRUE(lenient.SetDocument(c.text.data(), qel::u32(c.text.size())))
                << c.text << ": " << lenient.GetError();
        }
    }
}

// A million levels: checking, navigation, edits and removal walk the index
// without recursion, on the thread's own stack (1-2 MB on Windows).
TEST(MarkupDepth, AMillionLevelsNeedNoStack)
{
    const qel::u32 depth = 1000000;
    std::string text;
    for (qel::u32 i = 0; i < depth; ++i)
        text += "<a>";
    text += "x";
    for (qel::u32 i = 0; i < depth; ++i)
        text += "</a>";

    MarkupSTL cut; // the document ends with a million elements open
    EXPECT_FALSE(cut.SetDocument(text.data(), depth * 3));
    EXPECT_EQ(cut.GetErrorColumn(), depth * 3 + 1);
    text[text.size() - 2] = 'b'; // the root's end tag does not match
    EXPECT_FALSE(cut.SetDocument(text.data(), qel::u32(text.size())));
    EXPECT_EQ(cut.GetErrorColumn(), text.size() - 1);
    text[text.size() - 2] = 'a';

    MarkupSTL doc;
    ASSERT_TRUE(doc.SetDocument(text.data(), qel::u32(text.size()))) << doc.GetError();
    EXPECT_EQ(doc.GetElementCount(), depth);
    ASSERT_TRUE(doc.FindElement());
    qel::u32 levels = 1;
    for (; doc.FindChildElement(); ++levels)
        doc.IntoElement();
    EXPECT_EQ(levels, depth);
    EXPECT_EQ(S(doc.GetData()), "x");
    ASSERT_TRUE(doc.AddChildElement("b", "y"));
    EXPECT_EQ(S(doc.GetChildData()), "y");
    for (qel::u32 i = 1; i < depth; ++i)
        ASSERT_TRUE(doc.OutOfElement());
    EXPECT_FALSE(doc.OutOfElement());
    ASSERT_TRUE(doc.RemoveElement());
    EXPECT_EQ(doc.GetElementCount(), 0u);
    EXPECT_EQ(S(doc.GetDocument()), "");
}

// ---- edits against a model --------------------------------------------------------

struct Node
{
    std::string name, data;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<Node> children;

    bool operator==(const Node& o) const
    {
        return name == o.name &&
               (children.empty() ? data : "") == (o.children.empty() ? o.data : "") &&
               attributes == o.attributes && children == o.children;
    }
};

// The main element of `doc` read through navigation, children included.
Node Walk(MarkupSTL& doc)
{
    Node node;
    node.name = S(doc.GetTagName());
    node.data = S(doc.GetData());
    for (qel::u32 i = 0; !doc.GetAttributeName(i).empty(); ++i)
    {
        const std::string name = S(doc.GetAttributeName(i));
        node.attributes.emplace_back(name, S(doc.GetAttribute(name.c_str())));
    }
    doc.IntoElement();
    doc.ResetMainPosition();
    while (doc.FindElement())
        node.children.push_back(Walk(doc));
    doc.OutOfElement();
    return node;
}

// Puts the main position on the node at `path` (child indices from the
// root).
void GoTo(MarkupSTL& doc, const std::vector<std::size_t>& path)
{
    doc.ResetPosition();
    ASSERT_TRUE(doc.FindElement());
    for (std::size_t index : path)
    {
        ASSERT_TRUE(doc.IntoElement());
        doc.ResetMainPosition();
        for (std::size_t i = 0; i <= index; ++i)
            ASSERT_TRUE(doc.FindElement());
    }
}

#ifdef QEL_TEST_PUGIXML
Node FromPugi(const pugi::xml_node& element)
{
    Node node;
    node.name = element.name();
    for (const pugi::xml_attribute& a : element.attributes())
        node.attributes.emplace_back(a.name(), a.value());
    for (const pugi::xml_node& child : element.children())
    {
        if (child.type() == pugi::node_element)
            node.children.push_back(FromPugi(child));
        else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
            node.data += child.value();
    }
    return node;
}
#endif

TEST(MarkupEdit, SeededEditsMatchAModelAndTheDocumentLoadedAfresh)
{
    const char* const names[] = {"a", "b", "item", "x.y", "long_name"};
    // "plane" replaces "plain" by a value as long, which no edit may skip.
    const char* const texts[] = {"",      "plain",         "a<b & c>d", "quote\" and ' ]]> end",
                                 "plane", "tab\tline\nend"};
    for (unsigned seed = 1; seed <= 12; ++seed)
    {
        std::mt19937 random(seed);
        auto pick = [&random](std::size_t n) { return std::size_t(random() % n); };
        MarkupSTL doc;
        Node model{"root", "", {}, {}};
        ASSERT_TRUE(doc.AddElement("root"));
        for (int step = 0; step < 120; ++step)
        {
            // A random node and its path.
            std::vector<std::size_t> path;
            Node* node = &model;
            Node* parent = nullptr;
            while (!node->children.empty() && pick(3) != 0)
            {
                path.push_back(pick(node->children.size()));
                parent = node;
                node = &node->children[path.back()];
            }
            GoTo(doc, path);
            const char* name = names[pick(5)];
            const char* text = texts[pick(6)];
            const bool withData = pick(2) != 0;
            switch (pick(parent ? 8 : 5))
            {
            case 0:
            case 1:
                ASSERT_TRUE(doc.AddChildElement(name, withData ? text : nullptr));
                node->children.push_back(Node{name, withData ? text : "", {}, {}});
                break;
            case 2:
            {
                const std::size_t at = node->children.empty() ? 0 : pick(node->children.size());
                for (std::size_t i = 0; i < at; ++i)
                    ASSERT_TRUE(doc.FindChildElement());
                if (at != 0)
                {
                    ASSERT_TRUE(doc.FindChildElement()); // insert before child `at`
                }
                ASSERT_TRUE(doc.InsertChildElement(name, withData ? text : nullptr));
                node->children.insert(node->children.begin() + std::ptrdiff_t(at),
                                      Node{name, withData ? text : "", {}, {}});
                break;
            }
            case 3:
                ASSERT_TRUE(doc.SetData(text));
                node->children.clear();
                node->data = text;
                break;
            case 4:
            {
                ASSERT_TRUE(doc.SetAttribute(name, text));
                auto found = node->attributes.begin();
                while (found != node->attributes.end() && found->first != name)
                    ++found;
                if (found == node->attributes.end())
                    node->attributes.emplace_back(name, text);
                else
                    found->second = text;
                break;
            }
            case 5:
                ASSERT_TRUE(doc.RemoveElement());
                parent->children.erase(parent->children.begin() + std::ptrdiff_t(path.back()));
                break;
            case 6:
                ASSERT_TRUE(doc.InsertElement(name, withData ? text : nullptr));
                parent->children.insert(parent->children.begin() + std::ptrdiff_t(path.back()),
                                        Node{name, withData ? text : "", {}, {}});
                break;
            default:
                ASSERT_TRUE(doc.AddElement(name, withData ? text : nullptr));
                parent->children.push_back(Node{name, withData ? text : "", {}, {}});
                break;
            }
            // A node with children and text: its text is not compared.
            doc.ResetPosition();
            ASSERT_TRUE(doc.FindElement());
            ASSERT_TRUE(Walk(doc) == model) << "seed " << seed << " step " << step << "\n"
                                            << S(doc.GetDocument());
            MarkupSTL fresh(doc.GetDocument().c_str());
            ASSERT_TRUE(fresh.IsWellFormed()) << fresh.GetError() << "\n" << S(doc.GetDocument());
            ASSERT_TRUE(fresh.FindElement());
            ASSERT_TRUE(Walk(fresh) == model) << "seed " << seed << " step " << step;
        }
        // Long values set again and again: the stores fill with replaced
        // text and are compacted under the index.
        if (seed == 1)
        {
            const std::string value(1 << 16, 'v');
            for (int i = 0; i < 60; ++i)
            {
                std::vector<std::size_t> path;
                for (Node* node = &model; !node->children.empty() && i % 3 != 0;)
                {
                    path.push_back(std::size_t(i) % node->children.size());
                    node = &node->children[path.back()];
                }
                GoTo(doc, path);
                ASSERT_TRUE(doc.SetAttribute("long", (value + std::to_string(i)).c_str()));
            }
            MarkupSTL fresh(doc.GetDocument().c_str());
            doc.ResetPosition();
            ASSERT_TRUE(doc.FindElement() && fresh.FindElement());
            EXPECT_TRUE(Walk(doc) == Walk(fresh));
        }
#ifdef QEL_TEST_PUGIXML
        pugi::xml_document parsed;
        ASSERT_TRUE(parsed.load_buffer(doc.GetDocument().data(), doc.GetDocument().size()));
        if (seed != 1)
        {
            EXPECT_TRUE(FromPugi(parsed.document_element()) == model) << "seed " << seed;
        }
#endif
    }
}

#ifdef QEL_TEST_EXPAT
// The element tree expat reads, the internal subset's defaults and entities
// applied; an entity it does not read (external, or not declared in a
// document with an external DTD) stays a reference in the data, as
// MarkupSTL keeps it. False for a document expat refuses.
bool ReadWithExpat(const std::string& bytes, Node& root)
{
    std::vector<Node> open(1); // the document at the bottom
    XML_Parser expat = XML_ParserCreate(nullptr);
    XML_SetUserData(expat, &open);
    XML_SetElementHandler(
        expat,
        [](void* user, const char* name, const char** attributes)
        {
            Node node{name, "", {}, {}};
            for (; *attributes != nullptr; attributes += 2)
                node.attributes.emplace_back(attributes[0], attributes[1]);
            static_cast<std::vector<Node>*>(user)->push_back(node);
        },
        [](void* user, const char*)
        {
            auto& nodes = *static_cast<std::vector<Node>*>(user);
            Node done = std::move(nodes.back());
            nodes.pop_back();
            nodes.back().children.push_back(std::move(done));
        });
    XML_SetCharacterDataHandler(
        expat, [](void* user, const char* text, int length)
        { static_cast<std::vector<Node>*>(user)->back().data.append(text, std::size_t(length)); });
    // What expat does not read (comments, an entity it skips...) goes to
    // the default handler as it stands.
    XML_SetDefaultHandlerExpand(expat,
                                [](void* user, const char* text, int length)
                                {
                                    if (text[0] == '&')
                                        static_cast<std::vector<Node>*>(user)->back().data.append(
                                            text, std::size_t(length));
                                });
    const bool good = XML_Parse(expat, bytes.data(), int(bytes.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(expat);
    if (good)
        root = open[0].children.at(0);
    return good;
}
#endif

// Every XML file the machine has: the strict check refuses the files expat
// refuses and no others (but those where an entity holds elements, which
// MarkupSTL refuses, as its header says: they are listed), and reads the
// same element tree as expat, with the same defaulted attributes; an
// unedited document comes back byte for byte. Where pugixml reads a file too, the lenient tree is
// pugixml's (pugixml reads no entity or attribute-list declaration: files that have some are not
// compared).
TEST(MarkupCorpus, TheMachinesXmlFilesReadAsExpatAndPugixmlReadThem)
{
#if !defined(QEL_TEST_PUGIXML) || !defined(QEL_TEST_EXPAT)
    GTEST_SKIP() << "pugixml's or expat's headers are absent: the corpus is not compared";
#else
    namespace fs = std::filesystem;
    std::error_code error;
    std::set<std::string> files;
    const std::set<std::string> extensions = {".xml", ".svg",    ".xsl", ".xslt",
                                              ".xsd", ".policy", ".ui",  ".xhtml"};
    for (fs::recursive_directory_iterator it("/usr/share", error), end; !error && it != end;
         it.increment(error))
        if (it->is_regular_file(error) && extensions.count(it->path().extension().string()))
            files.insert(fs::canonical(it->path(), error).string());
    if (files.empty())
        GTEST_SKIP() << "no XML files under /usr/share";
    std::size_t compared = 0;
    std::vector<std::string> differ, markupEntities;
    for (const std::string& path : files)
    {
        std::ifstream in(path, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        MarkupSTL strict;
        strict.SetStrict(true);
        const bool ours = strict.SetDocument(bytes.data(), qel::u32(bytes.size()));
        Node judged;
        const bool expat = ReadWithExpat(bytes, judged);
        if (!ours && expat &&
            std::string(strict.GetError()).find("holds markup") != std::string::npos)
            markupEntities.push_back(path); // elements in an entity are not read, as documented
        else if (ours != expat)
            differ.push_back(path + (ours ? ": expat refuses it" : ": ") + strict.GetError());
        else if (ours)
        {
            ++compared;
            ASSERT_TRUE(strict.FindElement());
            if (!(Walk(strict) == judged))
                differ.push_back(path + ": another tree than expat's");
            if (std::string(strict.GetEncoding()) == "UTF-8")
            {
                EXPECT_EQ(S(strict.GetDocument()), bytes) << path;
            }
        }
        MarkupSTL doc;
        pugi::xml_document parsed;
        if (bytes.find("<!ENTITY") != std::string::npos ||
            bytes.find("<!ATTLIST") != std::string::npos ||
            !doc.SetDocument(bytes.data(), qel::u32(bytes.size())) ||
            !parsed.load_buffer(bytes.data(), bytes.size(),
                                pugi::parse_default | pugi::parse_ws_pcdata) ||
            !parsed.document_element() || !doc.FindElement())
            continue;
        if (!(Walk(doc) == FromPugi(parsed.document_element())))
            differ.push_back(path + ": another tree than pugixml's");
    }
    std::string list;
    for (const std::string& d : differ)
        list += d + "\n";
    EXPECT_TRUE(differ.empty()) << differ.size() << " of " << files.size() << " files differ:\n"
                                << list;
    EXPECT_GT(compared, files.size() / 2);
    for (const std::string& path : markupEntities)
        std::printf("not compared (an entity holds elements): %s\n", path.c_str());
#endif
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Saved unedited, a document comes back byte for byte in its encoding; an
// edit goes in as UTF-8 and is saved in the document's encoding.
TEST(MarkupFiles, SavedInTheEncodingTheyCameIn)
{
    qeltest::TemporaryFolder folder;
    using namespace std::string_literals;
    const struct
    {
        std::string bytes;
        const char* encoding;
        std::string edited; // the start of the edited document, saved
    } cases[] = {
        {kScene, "UTF-8", "\xEF\xBB\xBF<?xml"s},
        {Utf16("<a b='x'>\r\n</a>", true, true), "UTF-16LE",
         "\xFF\xFE<\0a\0 \0b\0=\0\"\0\xAC\x20x\0\"\0>\0\r\0\n\0"s},
        {Utf16("<a b='x'/>", false, false), "UTF-16BE", "\0<\0a\0 \0b\0=\0\"\x20\xAC\0x"s},
        {"<?xml version='1.0' encoding='latin1'?><a b='\xE9'/>", "ISO-8859-1",
         "<?xml version='1.0' encoding='latin1'?><a b=\"&#8364;\xE9\"/>"s},
    };
    for (const auto& c : cases)
    {
        const std::string path = folder.VirtualPath() + "saved.xml";
        MarkupSTL doc;
        ASSERT_TRUE(doc.SetDocument(c.bytes.data(), qel::u32(c.bytes.size()))) << doc.GetError();
        EXPECT_STREQ(doc.GetEncoding(), c.encoding);
        ASSERT_TRUE(doc.Save(path.c_str()));
        EXPECT_EQ(ReadFile(folder.Path() + "/saved.xml"), c.bytes) << c.encoding;

        ASSERT_TRUE(doc.FindElement());
        const std::string value = "\xE2\x82\xAC" + S(doc.GetAttribute("b"));
        ASSERT_TRUE(doc.SetAttribute("b", value.c_str()));
        ASSERT_TRUE(doc.Save(path.c_str()));
        EXPECT_EQ(ReadFile(folder.Path() + "/saved.xml").substr(0, c.edited.size()), c.edited)
            << c.encoding;
        MarkupSTL loaded;
        ASSERT_TRUE(loaded.Load(path.c_str())) << loaded.GetError();
        EXPECT_STREQ(loaded.GetEncoding(), c.encoding);
        ASSERT_TRUE(loaded.FindElement());
        EXPECT_EQ(S(loaded.GetAttribute("b")), value) << c.encoding;
        if (std::string(c.encoding) != "ISO-8859-1") // which has no euro but as a reference
        {
            EXPECT_EQ(S(loaded.GetDocument()), S(doc.GetDocument())) << c.encoding;
        }
    }
    // A file that cannot be read: no elements, and the reason.
    MarkupSTL missing;
    EXPECT_FALSE(missing.Load((folder.VirtualPath() + "missing.xml").c_str()));
    EXPECT_NE(std::string(missing.GetError()).find("cannot be read"), std::string::npos);
    EXPECT_EQ(missing.GetElementCount(), 0u);
}

} // namespace
