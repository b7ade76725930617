// The sectioned text parser and its tree: the grammar and its quirks,
// comments, printing back, the six syntax errors with their tree trace, the
// string pool and the section search.
#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/outputmemorystream.h>
#include <qel/packedallocator.h>
#include <qel/parsednode.h>
#include <qel/parsedstring.h>
#include <qel/parsedstringpool.h>
#include <qel/parser.h>
#include <qel/poolallocator.h>
#include <qel/provider.h>

#include "base/loader/parsedlinks.h"
#include "base/loader/parsedrecord.h"
#include "disk/disktest.h"
#include "support/environment.h"
#include "support/parsedshape.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace qel;

class ParserTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        root = folder.VirtualPath();
        Parser::SetParsingComment(false);
    }
    void TearDown() override { Parser::SetParsingComment(true); }

    // Parses `text` as a file of the folder.
    std::unique_ptr<ParsedFile> Parse(const std::string& text, const char* name = "a.txt")
    {
        disktest::WriteFile(folder.Path() + name, text);
        return std::unique_ptr<ParsedFile>(Parser::ParseFile((root + name).c_str()));
    }

    // The parameters of an entry, "-" for an empty one.
    static std::string Parameters(const ParsedNode* node)
    {
        const ParsedEntry* entry = static_cast<const ParsedEntry*>(node);
        std::string all;
        for (u32 i = 0; i < entry->GetParameterCount(); ++i)
        {
            const char* p = entry->GetParameter(i);
            all += (i ? "|" : "") + std::string(p ? p : "-");
        }
        return all;
    }

    // The same without the report of a syntax error, in a new file each
    // time (ext4 writes a file cut and written again out at once).
    std::unique_ptr<ParsedFile> Check(const std::string& text, bool comments, ParseError& error)
    {
        const std::string name = "check" + std::to_string(++checked) + ".txt";
        disktest::WriteFile(folder.Path() + name, text);
        Parser::SetParsingComment(comments);
        return std::unique_ptr<ParsedFile>(Parser::CheckFile((root + name).c_str(), error));
    }

    static std::string Printed(ParsedNode& node)
    {
        OutputMemoryStream out;
        node.Print(out, 0);
        out.Flush();
        u32 size = 0;
        const unsigned char* data = out.GetBuffer(size);
        return std::string(reinterpret_cast<const char*>(data), size);
    }

    qeltest::TemporaryFolder folder;
    std::string root;
    int checked = 0;
};

TEST_F(ParserTest, GrammarAndItsQuirks)
{
    auto file = Parse("E(1, \"two words\",,4,)\nF(1 2) G() H\n"
                      "odd:name,with)semi;colon(x)\n"
                      "{Object:Lamp(a, b)\n\t{Light Power(60)}\n}\n"
                      "{Bare(1)}{Empty}\xC3\xA9t\xC3\xA9(\xC3\xA0)");
    ASSERT_TRUE(file);
    ASSERT_EQ(file->GetChildCount(), 9u);
    EXPECT_STREQ(file->GetChild(0)->GetIdentifier(), "E");
    EXPECT_EQ(Parameters(file->GetChild(0)), "1|two words|-|4|-");
    EXPECT_EQ(Parameters(file->GetChild(1)), "1|2");
    EXPECT_EQ(Parameters(file->GetChild(2)), "-"); // G() has one empty parameter
    EXPECT_EQ(static_cast<ParsedEntry*>(file->GetChild(3))->GetParameterCount(), 0u);
    EXPECT_STREQ(file->GetChild(4)->GetIdentifier(), "odd:name,with)semi;colon");
    EXPECT_EQ(Parameters(file->GetChild(4)), "x");

    auto* object = static_cast<ParsedSection*>(file->GetChild(5));
    ASSERT_EQ(object->GetType(), u32(ParsedNode::SectionType));
    EXPECT_STREQ(object->GetIdentifier(), "Object");
    ASSERT_TRUE(object->GetName());
    EXPECT_STREQ(object->GetName()->GetIdentifier(), "Lamp");
    EXPECT_EQ(Parameters(object->GetName()), "a|b");
    auto* light = static_cast<ParsedSection*>(object->GetChild(0));
    EXPECT_EQ(light->GetParent(), object);
    EXPECT_EQ(light->GetRoot(), file.get());
    EXPECT_EQ(Parameters(light->GetChild(0)), "60");

    auto* bare = static_cast<ParsedSection*>(file->GetChild(6));
    ASSERT_TRUE(bare->GetName()); // a name entry without a name
    EXPECT_EQ(bare->GetName()->GetIdentifier(), nullptr);
    EXPECT_EQ(Parameters(bare->GetName()), "1");
    EXPECT_EQ(static_cast<ParsedSection*>(file->GetChild(7))->GetName(), nullptr);
    EXPECT_STREQ(file->GetChild(8)->GetIdentifier(), "\xC3\xA9t\xC3\xA9"); // high bytes are words
    EXPECT_STREQ(file->GetIdentifier(), (root + "a.txt").c_str());
    EXPECT_EQ(Parse("")->GetChildCount(), 0u);
}

// Comments skipped or kept, and trees printed back: parameters quoted,
// sections indented by tabs, lines ended by CR LF.
TEST_F(ParserTest, CommentsSkippedOrKeptAndTreesPrintedBack)
{
    const struct
    {
        const char* text;
        bool comments;
        const char* printed;
    } cases[] = {
        // "x" after the batch comment and "rest" after ;**; go with their lines.
        {"; note\nA\n;*batch\nover lines*; x\nB ;\nC ;**; rest\nD", false, "A\r\nB\r\nC\r\nD\r\n"},
        {"; note\r\nA\n;*a\nb*; x\n", true, "; note\r\nA\r\n;\r\n; x\r\n"},
        {"{Object:Lamp(a, ,b)\nColour(255 200 90)\n{Light\nOn()}}\nTop", false,
         "{Object:Lamp(\"a\", , \"b\")\r\n\tColour(\"255\", \"200\", \"90\")\r\n\t{Light\r\n"
         "\t\tOn()\r\n\t}\r\n}\r\nTop\r\n"},
        // Two texts that their plain form would not read back.
        {";\r*x\nE(a\"b, \"c\")\n", true, ";\r*x\r\nE(a\"b, \"c\")\r\n"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.text);
        Parser::SetParsingComment(c.comments);
        auto file = Parse(c.text);
        ASSERT_TRUE(file);
        EXPECT_EQ(Printed(*file), c.printed);
        if (c.comments)
        {
            EXPECT_EQ(file->GetChild(0)->GetType(), u32(ParsedNode::CommentType));
        }
    }
    EXPECT_EQ(Parse(cases[1].text)->GetChild(2)->GetIdentifier(), nullptr); // a batch comment
}

// Generated trees of every node kind, with texts of any byte that their
// place lets the parser read, and the trees that the parser makes of
// generated and damaged text, comments kept or skipped: each prints as
// text that reads back as the same tree and prints the same again.
TEST_F(ParserTest, PrintedTreesReadBackAsTheSameTrees)
{
    std::mt19937 random(31);
    auto below = [&](u32 count) { return u32(random() % count); };
    // 1 to 5 bytes, the first not one of `notFirst`, the others not of
    // `notIn`; half of them the format's own characters.
    auto text = [&](const char* notFirst, const char* notIn)
    {
        std::string made;
        for (const u32 length = 1 + below(5); made.size() < length;)
        {
            const char c = below(2) ? "{}():,\";* \t\r\n"[below(14)] : char(1 + below(255));
            if (!std::strchr(made.empty() ? notFirst : notIn, c))
                made += c;
        }
        return made;
    };
    const char* wordStart = "\t\n\r {}:(),\";";
    const char* nameEnd = "\t\n\r (}";
    // Without a name (only a section's name entry) at least a parameter.
    auto fill = [&](ParsedEntry* entry, const char* nameStart)
    {
        if (nameStart)
            entry->SetIdentifier(text(nameStart, nameEnd).c_str());
        for (u32 count = nameStart ? below(4) : 1 + below(3); count > 0; --count)
        {
            const u32 kind = below(3);
            entry->AddParameter(kind == 0   ? nullptr
                                : kind == 1 ? text("\"", "\"").c_str()
                                            : text(wordStart, "\t\n\r ,)").c_str());
        }
    };
    auto generate = [&]
    {
        auto tree = std::make_unique<ParsedFile>();
        ParsedRoot* at = tree.get();
        for (u32 step = below(20); step > 0; --step)
        {
            const u32 kind = below(4);
            ParsedNode* node = kind == 0   ? new ParsedSection
                               : kind == 1 ? static_cast<ParsedNode*>(new ParsedEntry)
                                           : new ParsedComment;
            if (kind == 3)
            {
                delete node;
                at = at == tree.get() ? at : at->GetParent(); // closes a section
                continue;
            }
            at->AddChild(node);
            if (kind == 1)
                fill(static_cast<ParsedEntry*>(node), wordStart);
            else if (kind == 2 && below(3) != 0)
                node->SetIdentifier(text("\n\r", "\n\r").c_str());
            else if (kind == 0)
            {
                ParsedSection* section = static_cast<ParsedSection*>(node);
                section->SetIdentifier(text("\t\n\r (:}", "\t\n\r (:}").c_str());
                if (below(2))
                {
                    section->SetName(new ParsedEntry);
                    fill(section->GetName(), below(2) ? nameEnd : nullptr);
                }
                at = section;
            }
        }
        return tree;
    };
    auto readsBack = [&](ParsedRoot& tree, bool comments)
    {
        const std::string printed = Printed(tree);
        ParseError error{};
        std::unique_ptr<ParsedFile> again = Check(printed, comments, error);
        ASSERT_TRUE(again) << error.message << " at " << error.line << ":" << error.column
                           << " of\n"
                           << printed;
        EXPECT_EQ(qeltest::Shape(*again), qeltest::Shape(tree)) << printed;
        EXPECT_EQ(Printed(*again), printed);
    };

    for (int round = 0; round < 300; ++round)
        readsBack(*generate(), true);
    const char* pieces[] = {"{",  "}",  "(",  ")",        ",",         ":",
                            "\"", ";",  ";*", "*;",       "*",         " ",
                            "\r", "\n", "a",  "\xC3\xA9", "{A:n(x)\n", "E(\"q\" w\"z)"};
    u32 parsed = 0;
    for (int round = 0; round < 1000; ++round)
    {
        // Pieces strung together, or a printed tree with pieces cut out of
        // it and put in.
        std::string input = round % 2 ? Printed(*generate()) : std::string();
        for (u32 edits = 1 + below(round % 2 ? 3 : 30); edits > 0; --edits)
        {
            const std::size_t at = below(u32(input.size()) + 1);
            if (below(3) == 0)
                input.erase(at, below(4));
            else
                input.insert(at, pieces[below(sizeof pieces / sizeof *pieces)]);
        }
        const bool comments = below(2) != 0;
        ParseError error{};
        if (std::unique_ptr<ParsedFile> tree = Check(input, comments, error))
        {
            ++parsed;
            readsBack(*tree, comments);
        }
    }
    EXPECT_GT(parsed, 200u);
}

// Parsing reports a syntax error and ends the process; checking reports
// nothing and tells where: the offending byte, or one past the end.
TEST_F(ParserTest, SyntaxErrorsAreFatalWithTheTreeTraceOrCheckedWithTheirPlace)
{
    const struct
    {
        const char* text;
        const char* message;
        const char* trace;
        u32 line, column;
        bool comments = false;
    } cases[] = {
        {"A ;* never closed", "Missing end of batch comment \"*;\"", "", 1, 18},
        // A comment kept in the tree is the innermost node while it is read.
        {"{A\nE(1 ;* never closed", "Missing end of batch comment \"*;\"", " <- A <- ", 2, 20,
         true},
        {"}", "Missing '{'", "", 1, 1},
        {"{A\n  }}", "Missing '{'", "", 2, 4},
        {"{}", "Missing 'Section Identifier' after '{'", " <- ", 1, 2},
        {"{Object:Lamp\n{Sub\nE(1)", "Missing '}'", "Sub <- Object Named Lamp <- ", 3, 5},
        {"{A:}", "Missing 'Entry Name' after ':'", " <- A <- ", 1, 4},
        {"{A\nE(1, 2", "Missing ')'", "E <- A <- ", 2, 7},
        {"{A:N(1 ;\n", "Missing ')'", "N <- A Named N <- ", 2, 1},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.text);
        Parser::SetParsingComment(c.comments);
        qeltest::ScriptedHost host; // answers No: the process would end here
        EXPECT_EQ(Parse(c.text), nullptr);
        ASSERT_EQ(host.questions.size(), 1u);
        const std::string trace = c.trace + root + "a.txt";
        EXPECT_NE(
            host.questions[0].text.find(std::string(c.message) + "\n\nTree trace: " + trace + "\n"),
            std::string::npos)
            << host.questions[0].text;
        EXPECT_GE(host.exits, 1);

        ParseError error{};
        EXPECT_EQ(Parser::CheckFile((root + "a.txt").c_str(), error), nullptr);
        EXPECT_EQ(error.line, c.line);
        EXPECT_EQ(error.column, c.column);
        EXPECT_STREQ(error.message, c.message);
        EXPECT_EQ(std::string(error.trace), trace);
    }
    EXPECT_EQ(Parser::ParseFile((root + "missing.txt").c_str()), nullptr); // no report
}

// Enough texts to grow the table several times and to rebuild it over the
// tombstones of released ones: short and long texts, texts that are
// prefixes of others, and a literal handed over without copy. The table
// reaches its records through a window of addresses and a list of those
// outside it: the window is left where the pool placed it, moved past
// every record before the texts come, or moved to start at one of them
// once they are pooled, so that some lie below it.
TEST(ParsedStringPool, KeepsItsPointersThroughGrowthRebuildsAndWindowMoves)
{
    enum Window
    {
        Placed,
        PastEveryRecord,
        AtOneOfThem
    };
    for (Window window : {Placed, PastEveryRecord, AtOneOfThem})
    {
        SCOPED_TRACE(window);
        const u32 before = ParsedStringPool::GetCount();
        std::uintptr_t placed = 0;
        if (window == PastEveryRecord)
        {
            ASSERT_TRUE(ParsedStringPool::MoveWindow(~std::uintptr_t(0), placed));
        }
        static const char literal[] = "pool growth literal";
        EXPECT_EQ(ParsedStringPool::Create(literal, false), literal);
        std::vector<std::string> texts;
        for (int i = 0; i < 6000; ++i)
            texts.push_back((i % 3 ? "g" : "a pooled text longer than sixteen ") +
                            std::to_string(i));
        std::vector<const char*> pooled;
        for (const std::string& text : texts)
            pooled.push_back(ParsedStringPool::Create(text.c_str(), u32(text.size()), true));
        if (window == AtOneOfThem)
        {
            ASSERT_TRUE(ParsedStringPool::MoveWindow(std::uintptr_t(pooled[3000]), placed));
        }
        const u32 far = ParsedStringPool::GetFarCount();
        if (window == Placed)
            EXPECT_EQ(far, 0u);
        else if (window == PastEveryRecord)
            EXPECT_EQ(far, ParsedStringPool::GetCount());
        else
            EXPECT_TRUE(far > 0 && far < ParsedStringPool::GetCount()) << far;
        for (int round = 0; round < 3; ++round)
        {
            // Release and intern again every other text: tombstones pile up
            // and the table is rebuilt under them.
            for (std::size_t i = 0; i < texts.size(); i += 2)
                ParsedStringPool::Release(pooled[i]);
            for (std::size_t i = 0; i < texts.size(); i += 2)
                pooled[i] = ParsedStringPool::Create(texts[i].c_str(), true);
        }
        EXPECT_EQ(ParsedStringPool::GetCount(), before + 1 + texts.size());
        EXPECT_EQ(ParsedStringPool::Search("pool growth literal"), literal);
        for (std::size_t i = 0; i < texts.size(); ++i)
        {
            ASSERT_STREQ(pooled[i], texts[i].c_str());
            ASSERT_NE(pooled[i], texts[i].c_str()); // a copy
            ASSERT_EQ(ParsedStringPool::Search(texts[i].c_str()), pooled[i]) << texts[i];
            // A copy of the text held elsewhere finds the pooled one.
            const std::string copy = texts[i];
            ASSERT_EQ(ParsedStringPool::Create(copy.c_str(), true), pooled[i]);
            ParsedStringPool::Release(copy.c_str());
        }
        EXPECT_EQ(ParsedStringPool::Search("g1"), pooled[1]);
        EXPECT_EQ(ParsedStringPool::Search("g"), nullptr);
        EXPECT_EQ(ParsedStringPool::Search("g100000"), nullptr);
        // A text of a pooled one's tag but longer is told apart by length.
        EXPECT_EQ(ParsedStringPool::Search("g1000000000000000000000000000000"), nullptr);
        if (window != Placed)
        {
            std::uintptr_t moved;
            ASSERT_TRUE(ParsedStringPool::MoveWindow(placed, moved));
            EXPECT_EQ(ParsedStringPool::GetFarCount(), 0u);
            EXPECT_EQ(ParsedStringPool::Search(texts[4999].c_str()), pooled[4999]);
        }
        for (const char* text : pooled)
            ParsedStringPool::Release(text);
        ParsedStringPool::Release(literal);
        EXPECT_EQ(ParsedStringPool::Search("pool growth literal"), nullptr);
        EXPECT_EQ(ParsedStringPool::GetCount(), before);
    }
}

// Handles take and drop their references without a lookup, where the
// pool's copy stands behind its record; an adopted text (the caller's own
// pointer) lies elsewhere and must still be counted as itself. Three
// literals adopted out of address order, released in yet another.
TEST(ParsedStringPool, HandlesCountAdoptedAndCopiedTextsAlike)
{
    const u32 before = ParsedStringPool::GetCount();
    static const char literals[] = "handle adopted 0\0handle adopted 1\0handle adopted 2";
    const char* adopted[] = {literals, literals + 17, literals + 34};
    for (int i : {2, 0, 1})
        ASSERT_EQ(ParsedStringPool::Create(adopted[i], false), adopted[i]);
    const char* copied = ParsedStringPool::Create("handle copied", true);
    {
        ParsedString a[] = {ParsedString::Adopt(adopted[0]), ParsedString::Adopt(adopted[1]),
                            ParsedString::Adopt(adopted[2])};
        ParsedString b = ParsedString::Adopt(copied);
        ParsedString c(a[1]), d(b);
        c = d; // drops the adopted text, takes the copy
        EXPECT_EQ(c.Get(), copied);
        d.Set("handle set");
        EXPECT_TRUE(c < d);
        d.Release();
        EXPECT_EQ(d.Get(), nullptr);
        EXPECT_TRUE(d < c); // no text sorts first
        EXPECT_EQ(ParsedStringPool::Search("handle set"), nullptr);
        a[1].Release(); // its last reference
        EXPECT_EQ(ParsedStringPool::Search("handle adopted 1"), nullptr);
        EXPECT_EQ(ParsedStringPool::Search("handle adopted 2"), adopted[2]);
        a[2] = a[0]; // the last reference of one adopted text for one more of another
        EXPECT_EQ(ParsedStringPool::Search("handle adopted 2"), nullptr);
        EXPECT_EQ(ParsedStringPool::Search("handle adopted 0"), adopted[0]);
        EXPECT_EQ(ParsedStringPool::GetCount(), before + 2);
    }
    EXPECT_EQ(ParsedStringPool::Search("handle adopted 0"), nullptr);
    EXPECT_EQ(ParsedStringPool::Search("handle copied"), nullptr);
    EXPECT_EQ(ParsedStringPool::GetCount(), before);
}

// A record's head holds only the low part of its count, the rest going to
// a table each time the head fills: counts that cross it (by handles, by
// the parser's links, back and forth at the edge) must still free the
// text at its last release, and not before.
TEST_F(ParserTest, CountsPastARecordsHeadFreeTheTextAtTheLastRelease)
{
    const u32 before = ParsedStringPool::GetCount();
    const u32 head = ParsedStringPool::Record::kMostHeld, many = 40000;
    for (u32 references : {head, head + 1, head + 2, 3 * head + 4, many})
    {
        const char* pooled = ParsedStringPool::Create("carried", true);
        std::vector<ParsedString> handles;
        for (u32 i = 1; i < references; ++i)
            if (i % 2)
                handles.push_back(ParsedString::Adopt(ParsedStringPool::Create("carried", true)));
            else
                handles.push_back(handles.back());
        for (int i = 0; i < 4; ++i) // down and up over the last count
        {
            handles.pop_back();
            handles.push_back(handles.front());
        }
        std::string text;
        for (u32 i = 0; i < references; ++i)
            text += "carried\n";
        auto file = Parse(text);
        ASSERT_TRUE(file);
        handles.clear();
        EXPECT_EQ(ParsedStringPool::Search("carried"), pooled) << references;
        file.reset();
        EXPECT_EQ(ParsedStringPool::Search("carried"), pooled) << references;
        ParsedStringPool::Release("carried");
        EXPECT_EQ(ParsedStringPool::Search("carried"), nullptr) << references;
    }
    EXPECT_EQ(ParsedStringPool::GetCount(), before);
}

// The parser hashes a text in its block a word at a time, reading past
// its end; the pool hashes a caller's text without doing so. Both must
// agree for every length, in the block and across its end, or a parsed
// name would not be found by its text (nor shared with it). Comments'
// texts are pooled too, equal ones sharing the parameters' copy; skipped,
// they are passed a block's rest at a time.
TEST_F(ParserTest, ParsedTextsAreTheTextsThatThePoolFinds)
{
    Parser::SetParsingComment(true);
    std::string text;
    std::vector<std::string> words;
    for (int round = 0; text.size() < 40000; ++round)
        for (int length = 1; length <= 40; ++length)
        {
            words.push_back(std::string(length, char('a' + round % 26)));
            const std::string& word = words.back();
            text += ";" + word + "\ne" + std::to_string(words.size()) + "(" + word + " \"" + word +
                    "\")\n;" + word + "\n";
        }
    auto file = Parse(text);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->GetChildCount(), 3 * words.size());
    for (u32 i = 0; i < words.size(); ++i)
    {
        const ParsedEntry* entry = static_cast<const ParsedEntry*>(file->GetChild(3 * i + 1));
        const std::string name = "e" + std::to_string(i + 1);
        ASSERT_EQ(ParsedStringPool::Search(name.c_str()), entry->GetIdentifier()) << name;
        ASSERT_STREQ(entry->GetParameter(0), words[i].c_str());
        ASSERT_EQ(ParsedStringPool::Search(words[i].c_str()), entry->GetParameter(0)) << name;
        ASSERT_EQ(entry->GetParameter(1), entry->GetParameter(0)) << name; // quoted
        ASSERT_EQ(file->GetChild(3 * i)->GetIdentifier(), entry->GetParameter(0)) << name;
        ASSERT_EQ(file->GetChild(3 * i + 2)->GetIdentifier(), entry->GetParameter(0)) << name;
    }
    // Skipped, the same comments, across the block's end too, leave the
    // entries as they are.
    Parser::SetParsingComment(false);
    auto skipped = Parse(text, "b.txt");
    ASSERT_TRUE(skipped);
    ASSERT_EQ(skipped->GetChildCount(), words.size());
    for (u32 i = 0; i < words.size(); ++i)
        ASSERT_STREQ(skipped->GetChild(i)->GetIdentifier(), ("e" + std::to_string(i + 1)).c_str());
}

TEST_F(ParserTest, FindChildMatchesPrefixesOfIdentifiersAndNames)
{
    auto file = Parse("E\n{Object:Desk}\n{Object:Lamp\n{Light:Main}\n{Light:Spare}}\n{Other}");
    ASSERT_TRUE(file);
    auto name = [](ParsedRoot* section)
    {
        const ParsedEntry* entry =
            section ? static_cast<ParsedSection*>(section)->GetName() : nullptr;
        return std::string(entry && entry->GetIdentifier() ? entry->GetIdentifier() : "-");
    };
    EXPECT_EQ(name(file->FindChild("Object")), "Desk");
    EXPECT_EQ(name(file->FindChild("Object:")), "Desk");
    EXPECT_EQ(name(file->FindChild("Obj:La")), "Lamp");
    EXPECT_EQ(name(file->FindChild("Object:Lamp^Light:Sp")), "Spare");
    EXPECT_EQ(file->FindChild("Object:Lamp^Light:None"), nullptr);
    EXPECT_EQ(file->FindChild("E"), nullptr); // entries are not searched
    EXPECT_STREQ(file->FindChild("Oth")->GetIdentifier(), "Other");

    // Insertion by index: at the count appends, past it adds nothing.
    ParsedEntry* last = new ParsedEntry;
    file->AddChild(last, file->GetChildCount());
    EXPECT_EQ(file->GetChild(file->GetChildCount() - 1), last);
    ParsedEntry stray;
    file->AddChild(&stray, file->GetChildCount() + 1);
    EXPECT_EQ(stray.GetParent(), nullptr);
    file->ReleaseChild(last);
    EXPECT_EQ(file->GetChildCount(), 4u);
}

// The size and hash of a byte sequence, kept instead of the bytes: a tree
// a million levels deep prints as a hundred megabytes.
struct Digest
{
    void Add(const std::string& text) { Add(text.data(), text.size()); }
    void Add(const char* data, std::size_t count)
    {
        size += count;
        for (const char* end = data + count; data != end; ++data)
            hash = (hash ^ static_cast<unsigned char>(*data)) * 0x100000001B3ull;
    }
    bool operator==(const Digest& other) const { return size == other.size && hash == other.hash; }

    u64 size = 0;
    u64 hash = 0xCBF29CE484222325ull;
};

class DigestStream : public OutputStream
{
public:
    DigestStream() : OutputStream(&m_Sink) {}
    ~DigestStream() override { Finish(); }
    const Digest& Written()
    {
        Flush();
        return m_Sink.digest;
    }

private:
    struct Sink : Provider
    {
        Sink() { m_Open = true; }
        void Request(u64, unsigned char*& block, unsigned char*& current,
                     unsigned char*& end) override
        {
            block = current = buffer;
            end = buffer + sizeof buffer;
        }
        void Return(void* block, void* end) override
        {
            digest.Add(static_cast<const char*>(block),
                       std::size_t(static_cast<unsigned char*>(end) - buffer));
        }
        void Return(void* block) override { Return(block, buffer + sizeof buffer); }
        unsigned char buffer[65536];
        Digest digest;
    } m_Sink;
};

// Depth takes no stack: a default one (1 to 8 MB) holds some ten thousand
// levels of recursion. A million nested sections are parsed, searched,
// printed (deep lines keep 64 tabs) and destroyed, and the same file
// without its '}' is reported at its end with the trace cut to fit.
TEST_F(ParserTest, AMillionLevelsDeepTakeNoStack)
{
    const u32 depth = 1000000;
    std::string text, path;
    for (u32 i = 0; i < depth; ++i)
    {
        text += "{A\n";
        path += i ? "^A" : "A";
    }
    text += "E(1)\n" + std::string(depth, '}');
    auto file = Parse(text);
    ASSERT_TRUE(file);
    ParsedRoot* at = file.get();
    for (u32 i = 0; i < depth; ++i)
    {
        ASSERT_EQ(at->GetChildCount(), 1u) << i;
        at = static_cast<ParsedRoot*>(at->GetChild(0));
    }
    EXPECT_STREQ(at->GetChild(0)->GetIdentifier(), "E");
    EXPECT_EQ(file->FindChild(path.c_str()), at);

    std::vector<std::string> opens, closes; // by indent
    for (u32 tabs = 0; tabs <= 64; ++tabs)
    {
        opens.push_back(std::string(tabs, '\t') + "{A\r\n");
        closes.push_back(std::string(tabs, '\t') + "}\r\n");
    }
    Digest expected;
    for (u32 i = 0; i < depth; ++i)
        expected.Add(opens[std::min<u32>(i, 64)]);
    expected.Add(std::string(64, '\t') + "E(\"1\")\r\n");
    for (u32 i = depth; i-- > 0;)
        expected.Add(closes[std::min<u32>(i, 64)]);
    DigestStream printed;
    file->Print(printed, 0);
    EXPECT_TRUE(printed.Written() == expected);
    file->ReleaseChild(u32(0));
    file.reset();

    text.resize(text.size() - depth);
    disktest::WriteFile(folder.Path() + "deep.txt", text);
    ParseError error{};
    EXPECT_EQ(Parser::CheckFile((root + "deep.txt").c_str(), error), nullptr);
    EXPECT_STREQ(error.message, "Missing '}'");
    EXPECT_EQ(error.line, depth + 2);
    EXPECT_EQ(error.column, 1u);
    EXPECT_EQ(std::string(error.trace).substr(0, 12), "A <- A <- A ");
    EXPECT_EQ(std::strlen(error.trace), sizeof error.trace - 1);
}

// The bytes in use in the shared allocators behind General.
u64 GeneralBytes()
{
    return u64(static_cast<PoolAllocator*>(Mem::GetSmallAlloc())->GetTotals().currentUsedSize) +
           static_cast<PackedAllocator*>(Mem::GetBigAlloc())->GetStatistics().currentUsedSize;
}

// The parser lays a file's nodes out in blocks that the file owns, linked
// in 32 bits, or through a table when too far apart (the second time every
// link is made so), comments among them: parsed nodes edited, emptied and
// released early (of sizes that are odd and even multiples of 4 bytes on
// either host), a replaced name and nodes made with new mix with them,
// and destroying the file, which steps through its blocks, gives every
// byte, text and table entry back.
TEST_F(ParserTest, AFileHoldsItsNodesAndGivesThemBackWithIt)
{
    Parser::SetParsingComment(true);
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "; note " + std::to_string(i) + "\n{Object:o" + std::to_string(i) +
                "\n\tPosition(1 2 3)\n\tColour(4 5)\n\t{Light\n\t\tPower(60)\n\t}\n}\n";
    // A first parse grows the string pool's table for good.
    ASSERT_TRUE(Parse(text));
    const u64 bytes = GeneralBytes();
    const u32 pooled = ParsedStringPool::GetCount();
    const u32 far = parsedlinks::CountFarLinks();
    std::string printed[2];
    for (bool everyFar : {false, true})
    {
        parsedlinks::MakeEveryLinkFar(everyFar);
        std::unique_ptr<ParsedFile> file = Parse(text);
        ASSERT_TRUE(file);
        file->ReleaseChild(u32(5));
        ParsedSection* section = static_cast<ParsedSection*>(file->FindChild("Object:o0"));
        ASSERT_TRUE(section);
        ParsedEntry* name = new ParsedEntry;
        name->SetIdentifier("renamed");
        section->SetName(name);
        section->ReleaseChild(u32(0));
        ParsedRoot* light = file->FindChild("Object:renamed^Light");
        ASSERT_TRUE(light);
        ParsedEntry* power = static_cast<ParsedEntry*>(light->GetChild(0));
        EXPECT_EQ(power->GetRoot(), file.get());
        power->AddParameter("watts", 0);
        power->ReleaseParameter(1);
        ParsedEntry* added = new ParsedEntry;
        added->SetIdentifier("Added");
        section->AddChild(added);
        file->AddChild(new ParsedSection, 3);
        EXPECT_EQ(added->GetParent(), section);
        EXPECT_EQ(file->GetChildCount(), 6000u);
        EXPECT_EQ(
            Printed(*section),
            "{Object:renamed\r\n\tColour(\"4\", \"5\")\r\n\t{Light\r\n\t\tPower(\"watts\")\r\n\t}"
            "\r\n\tAdded\r\n}\r\n");
        EXPECT_STREQ(static_cast<ParsedSection*>(file->GetChild(7))->GetName()->GetIdentifier(),
                     "o3");
        // A parsed name dropped, and one made by hand for a section that
        // has no list yet.
        auto* unnamed = static_cast<ParsedSection*>(file->FindChild("Object:o1"));
        ASSERT_TRUE(unnamed);
        unnamed->SetName(nullptr);
        EXPECT_EQ(unnamed->GetName(), nullptr);
        auto* lamp = static_cast<ParsedSection*>(unnamed->GetChild(2));
        lamp->SetName(new ParsedEntry);
        lamp->GetName()->AddParameter("lit");
        for (int i = 0; i < 4; ++i) // past the list's first room
            lamp->AddChild(new ParsedComment);
        EXPECT_EQ(Printed(*unnamed),
                  "{Object\r\n\tPosition(\"1\", \"2\", \"3\")\r\n\tColour(\"4\", \"5\")\r\n"
                  "\t{Light:(\"lit\")\r\n\t\tPower(\"60\")\r\n\t\t;\r\n\t\t;\r\n\t\t;\r\n\t\t;\r\n"
                  "\t}\r\n}\r\n");
        // A comment's text set anew, a parsed section emptied and given a
        // child made by hand.
        ParsedNode* comment = file->GetChild(6);
        EXPECT_STREQ(comment->GetIdentifier(), " note 3");
        comment->SetIdentifier("edited");
        ParsedRoot* emptied = file->FindChild("Object:o4");
        ASSERT_TRUE(emptied);
        emptied->ReleaseChildren();
        emptied->AddChild(new ParsedComment);
        EXPECT_EQ(Printed(*emptied), "{Object:o4\r\n\t;\r\n}\r\n");
        EXPECT_STREQ(file->GetChild(6)->GetIdentifier(), "edited");
        printed[everyFar] = Printed(*file);
        // A parsed file emptied, then given a node again.
        std::unique_ptr<ParsedFile> emptiedFile = Parse(text, "b.txt");
        ASSERT_TRUE(emptiedFile);
        emptiedFile->ReleaseChildren();
        emptiedFile->AddChild(new ParsedComment);
        EXPECT_EQ(Printed(*emptiedFile), ";\r\n");
        emptiedFile.reset();

        file.reset();
        parsedlinks::MakeEveryLinkFar(false);
        EXPECT_EQ(GeneralBytes(), bytes);
        EXPECT_EQ(ParsedStringPool::GetCount(), pooled);
        EXPECT_EQ(parsedlinks::CountFarLinks(), far);
    }
    EXPECT_EQ(printed[1], printed[0]);
}

// Parameters and children edited at any index, in nodes made by hand (kept
// in a list) and in parsed ones (kept in the node until an edit moves them
// to a list), keep their order and every pooled reference.
TEST_F(ParserTest, EditsAtAnyIndexKeepOrderAndReferences)
{
    const u32 pooled = ParsedStringPool::GetCount();
    {
        std::unique_ptr<ParsedFile> parsed = Parse("E(q0 q1 q2)\nA\nB\n");
        ASSERT_TRUE(parsed);
        ParsedEntry made;
        for (ParsedEntry* entry : {&made, static_cast<ParsedEntry*>(parsed->GetChild(0))})
        {
            std::vector<std::string> model;
            for (u32 i = 0; i < entry->GetParameterCount(); ++i)
                model.push_back(entry->GetParameter(i));
            const u32 at[] = {0, 1, 0, 3, 2, 5, 1, 7, 4, 0};
            for (u32 i = 0; i < 10; ++i)
            {
                const std::string text = "p" + std::to_string(i);
                entry->AddParameter(text.c_str(), at[i]);
                model.insert(model.begin() + at[i], text);
            }
            entry->AddParameter(nullptr);
            model.push_back("");
            for (u32 index : {10u, 0u, 4u, 4u, 1u, 2u, 1u})
            {
                entry->ReleaseParameter(index);
                model.erase(model.begin() + index);
            }
            ASSERT_EQ(entry->GetParameterCount(), model.size());
            for (u32 i = 0; i < model.size(); ++i)
                EXPECT_EQ(entry->GetParameter(i) ? entry->GetParameter(i) : "", model[i]) << i;
        }

        ParsedFile file;
        for (ParsedFile* root : {&file, parsed.get()})
        {
            std::vector<ParsedNode*> children;
            for (u32 i = 0; i < root->GetChildCount(); ++i)
                children.push_back(root->GetChild(i));
            for (u32 i = 0; i < 9; ++i)
            {
                ParsedEntry* child = new ParsedEntry;
                const u32 index = (i * 5) % (u32(children.size()) + 1);
                root->AddChild(child, index);
                children.insert(children.begin() + index, child);
            }
            root->ReleaseChild(children[6]);
            children.erase(children.begin() + 6);
            root->ReleaseChild(u32(0));
            children.erase(children.begin());
            ASSERT_EQ(root->GetChildCount(), children.size());
            for (u32 i = 0; i < children.size(); ++i)
            {
                EXPECT_EQ(root->GetChild(i), children[i]) << i;
                EXPECT_EQ(children[i]->GetParent(), root);
            }
        }
    }
    EXPECT_EQ(ParsedStringPool::GetCount(), pooled);
}

} // namespace
