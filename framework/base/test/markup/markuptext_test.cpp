// The pieces that hold a markup document's text: seeded edits between
// random marks, checked against a plain string after every step.
#include "base/markup/markuptext.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace
{

using qel::MarkupText;
using qel::u32;

std::string S(const MarkupText::String& s)
{
    return std::string(s.data(), s.size());
}

// The stored byte at `offset` in the text, walked from the first.
u32 StoredAt(const MarkupText& text, u32 offset)
{
    u32 at = text.First();
    for (u32 i = 0; i < offset; ++i)
        at = text.Next(at);
    return at;
}

// A mark for the place before `offset`: after the byte before it or before
// the byte at it, as `after` picks where both exist.
MarkupText::Mark MarkAt(const MarkupText& text, u32 offset, bool after)
{
    if (offset == 0 || (!after && offset < text.Size()))
        return MarkupText::Mark{offset < text.Size() ? StoredAt(text, offset) : MarkupText::kNone,
                                false};
    return MarkupText::Mark{StoredAt(text, offset - 1), true};
}

TEST(MarkupText, SeededEditsMatchAPlainString)
{
    // The longest is more than a first chunk of inserted text holds.
    const std::string run(5000, 'r');
    const char* const inserts[] = {"",         "x",        "<tag>", "a longer run of text\n",
                                   "\xC3\xA9", run.c_str()};
    for (unsigned seed = 1; seed <= 20; ++seed)
    {
        std::mt19937 random(seed);
        auto pick = [&random](u32 n) { return u32(random() % n); };
        MarkupText text;
        std::string reference = seed % 2 ? "<root>\n  <a/>\n</root>\n" : "";
        text.Assign(MarkupText::String(reference.data(), reference.size()));
        for (int step = 0; step < 300; ++step)
        {
            u32 from = pick(u32(reference.size()) + 1);
            u32 to = from + pick(u32(reference.size()) - from + 1);
            if (pick(3) == 0)
                to = from; // an insertion
            const char* insert = inserts[pick(6)];
            std::string piece(insert);
            u32 stored =
                text.Replace(MarkAt(text, from, pick(2) != 0), MarkAt(text, to, pick(2) != 0),
                             piece.data(), u32(piece.size()));
            reference.replace(from, to - from, piece);
            while (!piece.empty() && pick(3) == 0)
            {
                // Written anew over its own run, as a start tag is: shorter,
                // as long or longer, and longer again after shorter.
                const std::string again = inserts[1 + pick(5)];
                stored = text.Replace(MarkupText::Mark{stored, false},
                                      MarkupText::Mark{stored + u32(piece.size()) - 1, true},
                                      again.data(), u32(again.size()));
                reference.replace(from, piece.size(), again);
                piece = again;
            }
            ASSERT_EQ(text.Size(), reference.size()) << "seed " << seed << " step " << step;
            ASSERT_EQ(S(text.Whole()), reference) << "seed " << seed << " step " << step;
            if (!piece.empty())
            {
                EXPECT_EQ(std::string(text.At(stored), piece.size()), piece);
                EXPECT_EQ(text.Offset(MarkupText::Mark{stored, false}), from);
            }
            // Any range, read whole or as one run.
            if (reference.empty())
                continue;
            u32 a = pick(u32(reference.size()));
            if (pick(4) == 0)
            {
                // The run of bytes stored one after the other around it,
                // split or rewritten shorter before perhaps: written anew.
                u32 first = StoredAt(text, a), last = first, at = a;
                while (text.Previous(first) != MarkupText::kNone &&
                       text.Previous(first) + 1 == first)
                    first = text.Previous(first), --at;
                while (text.Next(last) != MarkupText::kNone && text.Next(last) == last + 1)
                    ++last;
                const std::string again = inserts[1 + pick(5)];
                text.Replace(MarkupText::Mark{first, false}, MarkupText::Mark{last, true},
                             again.data(), u32(again.size()));
                reference.replace(at, last - first + 1, again);
                ASSERT_EQ(S(text.Whole()), reference) << "seed " << seed << " step " << step;
                a = at;
            }
            const u32 b = a + pick(u32(reference.size()) - a + 1);
            const MarkupText::Mark ma = MarkAt(text, a, pick(2) != 0);
            const MarkupText::Mark mb = MarkAt(text, b, pick(2) != 0);
            MarkupText::String range;
            text.Append(ma, mb, range);
            EXPECT_EQ(S(range), reference.substr(a, b - a)) << "seed " << seed << " step " << step;
            const char* data;
            u32 length;
            if (text.Span(ma, mb, data, length))
            {
                EXPECT_EQ(std::string(data, length), reference.substr(a, b - a));
            }
            EXPECT_EQ(text.Offset(ma), a);
            EXPECT_EQ(text.Previous(StoredAt(text, a)),
                      a == 0 ? MarkupText::kNone : StoredAt(text, a - 1));
            if (step % 50 == 49)
            {
                // Compacted, the text and a byte's name for it stay true.
                u32 followed = StoredAt(text, a);
                text.Compact([&followed](const MarkupText::Renamer& rename) { rename(followed); });
                ASSERT_EQ(S(text.Whole()), reference);
                EXPECT_EQ(followed, a);
            }
        }
    }
}

// Thousands of pieces, then none: the index of pieces splits and drops its
// blocks.
TEST(MarkupText, ThousandsOfPiecesThenNone)
{
    std::mt19937 random(7);
    std::string reference(100, '.');
    MarkupText text;
    text.Assign(MarkupText::String(reference.data(), reference.size()));
    for (int step = 0; step < 1500; ++step)
    {
        const u32 at = u32(random() % (reference.size() + 1));
        const char c = char('a' + step % 26);
        text.Replace(MarkAt(text, at, step % 2 != 0), MarkAt(text, at, step % 3 != 0), &c, 1);
        reference.insert(reference.begin() + at, c);
    }
    ASSERT_EQ(S(text.Whole()), reference);
    for (u32 at = 0; at < reference.size(); at += 97)
        EXPECT_EQ(*text.At(StoredAt(text, at)), reference[at]);
    text.Replace(MarkupText::Mark{text.First(), false}, MarkupText::Mark{MarkupText::kNone, false},
                 "new", 3);
    EXPECT_EQ(S(text.Whole()), "new");
    EXPECT_EQ(text.Previous(text.Last()), text.First() + 1);
}

} // namespace
