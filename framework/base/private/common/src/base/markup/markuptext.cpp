#include "base/markup/markuptext.h"

#include <algorithm>
#include <cstring>

namespace qel
{

void MarkupText::Assign(String&& text)
{
    m_Source.swap(text);
    Reset();
}

void MarkupText::Reset()
{
    // The largest chunk stays, emptied, for the next insertions.
    if (!m_Added.empty())
    {
        auto largest = std::max_element(m_Added.begin(), m_Added.end(),
                                        [](const Chunk& a, const Chunk& b)
                                        { return a.bytes.capacity() < b.bytes.capacity(); });
        String kept;
        kept.swap(largest->bytes);
        kept.clear();
        m_Added.clear();
        m_Added.push_back(Chunk{u32(m_Source.size()), std::move(kept)});
    }
    m_Pieces.clear();
    m_Starts.Clear();
    for (u32& recent : m_Recent)
        recent = kNone;
    m_Free = m_Head = m_Tail = kNone;
    m_Size = u32(m_Source.size());
    m_Live = 0;
    m_Whole.clear();
    m_Gathered = true;
    if (m_Size != 0)
    {
        m_Head = m_Tail = NewPiece(0, m_Size);
        m_Starts.Insert(0, m_Head);
    }
}

u32 MarkupText::NewPiece(u32 start, u32 length)
{
    u32 index = m_Free;
    if (index == kNone)
    {
        index = u32(m_Pieces.size());
        m_Pieces.push_back(Piece{});
    }
    else
        m_Free = m_Pieces[index].next;
    m_Pieces[index] = Piece{start, length, kNone, kNone, length};
    ++m_Live;
    return index;
}

u32 MarkupText::Locate(u32 at) const
{
    if (m_Live == 1)
        return m_Head;
    for (u32 recent : m_Recent)
        if (recent != kNone && at - m_Pieces[recent].start < m_Pieces[recent].length)
            return recent;
    const u32 found = m_Starts.Find(at);
    Remember(found);
    return found;
}

void MarkupText::Remember(u32 piece) const
{
    m_Recent[3] = m_Recent[2];
    m_Recent[2] = m_Recent[1];
    m_Recent[1] = m_Recent[0];
    m_Recent[0] = piece;
}

u32 MarkupText::Last() const
{
    return m_Tail == kNone ? kNone : m_Pieces[m_Tail].start + m_Pieces[m_Tail].length - 1;
}

u32 MarkupText::Next(u32 at) const
{
    const Piece& piece = m_Pieces[Locate(at)];
    if (at + 1 < piece.start + piece.length)
        return at + 1;
    return piece.next == kNone ? kNone : m_Pieces[piece.next].start;
}

u32 MarkupText::Previous(u32 at) const
{
    const Piece& piece = m_Pieces[Locate(at)];
    if (at > piece.start)
        return at - 1;
    return piece.previous == kNone ? kNone : Last(piece.previous);
}

u32 MarkupText::Last(u32 piece) const
{
    return End(piece) - 1;
}

u32 MarkupText::Split(Mark mark)
{
    if (mark.at == kNone)
        return kNone;
    const u32 index = Locate(mark.at);
    const u32 at = mark.at + (mark.after ? 1 : 0);
    Piece& piece = m_Pieces[index];
    if (at == piece.start)
        return index;
    if (at == piece.start + piece.length)
        return piece.next;
    const u32 tail = NewPiece(at, piece.start + piece.length - at);
    Piece& first = m_Pieces[index]; // NewPiece may have moved it
    Piece& second = m_Pieces[tail];
    second.room = first.start + first.room - at;
    first.length = first.room = at - first.start;
    second.previous = index;
    second.next = first.next;
    if (first.next != kNone)
        m_Pieces[first.next].previous = tail;
    else
        m_Tail = tail;
    first.next = tail;
    m_Starts.Insert(at, tail);
    // The text just after an edit is the likeliest to be read or edited next.
    Remember(tail);
    return tail;
}

u32 MarkupText::Replace(Mark from, Mark to, const char* text, u32 length)
{
    if (from.at != kNone && to.at != kNone && !from.after && to.after && length != 0)
    {
        const u32 index = Locate(from.at);
        if (from.at == m_Pieces[index].start && to.at + 1 == End(index))
            return Rewrite(index, text, length);
    }
    const u32 first = Split(from);
    const u32 stop = Split(to);
    u32 before = first == kNone ? m_Tail : m_Pieces[first].previous;
    for (u32 at = first; at != stop;)
    {
        Piece& gone = m_Pieces[at];
        const u32 next = gone.next;
        m_Size -= gone.length;
        m_Starts.Erase(gone.start);
        for (u32& recent : m_Recent)
            if (recent == at)
                recent = kNone;
        gone.next = m_Free;
        m_Free = at;
        --m_Live;
        at = next;
    }
    if (before != kNone)
        m_Pieces[before].next = stop;
    else
        m_Head = stop;
    if (stop != kNone)
        m_Pieces[stop].previous = before;
    else
        m_Tail = before;

    const u32 stored = Store(text, length);
    m_Size += length;
    m_Gathered = false;
    if (length == 0)
        return stored;
    // Text typed on after the last insertion, in the same chunk, grows its
    // piece.
    if (before != kNone && m_Pieces[before].start + m_Pieces[before].length == stored &&
        stored != m_Added.back().base)
    {
        m_Pieces[before].length += length;
        m_Pieces[before].room += length;
        Remember(before);
        return stored;
    }
    const u32 made = NewPiece(stored, length);
    Piece& piece = m_Pieces[made];
    piece.previous = before;
    piece.next = stop;
    if (before != kNone)
        m_Pieces[before].next = made;
    else
        m_Head = made;
    if (stop != kNone)
        m_Pieces[stop].previous = made;
    else
        m_Tail = made;
    m_Starts.Insert(stored, made);
    Remember(made);
    return stored;
}

u32 MarkupText::Rewrite(u32 index, const char* text, u32 length)
{
    Piece& piece = m_Pieces[index];
    if (length <= piece.room)
    {
        // Its bytes are its own: no other piece holds them.
        std::memmove(const_cast<char*>(At(piece.start)), text, length);
    }
    else
    {
        // Stored and indexed before the piece moves, so that running out
        // of memory leaves the text as it was.
        const u32 stored = Store(text, length);
        m_Starts.Insert(stored, index);
        m_Starts.Erase(piece.start);
        piece.start = stored;
        piece.room = length;
    }
    m_Size = m_Size - piece.length + length;
    m_Gathered = false;
    piece.length = length;
    return piece.start;
}

void MarkupText::Append(Mark from, Mark to, String& out) const
{
    if (from.at == kNone)
        return;
    // From before a byte, to after one: the marks of a piece's edges name
    // the same place as those of its neighbours'.
    u32 piece = Locate(from.at);
    u32 at = from.at + (from.after ? 1 : 0);
    if (at == End(piece))
    {
        piece = m_Pieces[piece].next;
        if (piece == kNone)
            return;
        at = m_Pieces[piece].start;
    }
    u32 last = m_Tail;
    u32 stop = End(m_Tail);
    if (to.at != kNone)
    {
        last = Locate(to.at);
        stop = to.at + (to.after ? 1 : 0);
        if (stop == m_Pieces[last].start)
        {
            last = m_Pieces[last].previous;
            if (last == kNone)
                return;
            stop = End(last);
        }
    }
    if (m_Pieces[last].next == piece && at == m_Pieces[piece].start)
        return; // an empty range between two pieces
    for (;;)
    {
        out.append(At(at), (piece == last ? stop : End(piece)) - at);
        if (piece == last)
            return;
        piece = m_Pieces[piece].next;
        at = m_Pieces[piece].start;
    }
}

bool MarkupText::Span(Mark from, Mark to, const char*& data, u32& length) const
{
    if (from.at == kNone || to.at == kNone)
        return false;
    const u32 piece = Locate(from.at);
    const Piece& p = m_Pieces[piece];
    const u32 at = from.at + (from.after ? 1 : 0);
    const u32 stop = to.at + (to.after ? 1 : 0);
    if (to.at < p.start || to.at >= p.start + p.length || stop < at)
        return false;
    data = At(at);
    length = stop - at;
    return true;
}

const MarkupText::String& MarkupText::Whole() const
{
    if (m_Live == 1 && m_Pieces[m_Head].start == 0 && m_Pieces[m_Head].length == m_Source.size())
        return m_Source;
    if (!m_Gathered)
    {
        m_Whole.clear();
        m_Whole.reserve(m_Size);
        for (u32 piece = m_Head; piece != kNone; piece = m_Pieces[piece].next)
            m_Whole.append(At(m_Pieces[piece].start), m_Pieces[piece].length);
        m_Gathered = true;
    }
    return m_Whole;
}

u32 MarkupText::Offset(Mark mark) const
{
    if (mark.at == kNone)
        return m_Size;
    const u32 target = Locate(mark.at);
    u32 offset = 0;
    for (u32 piece = m_Head; piece != target; piece = m_Pieces[piece].next)
        offset += m_Pieces[piece].length;
    return offset + mark.at - m_Pieces[target].start + (mark.after ? 1 : 0);
}

bool MarkupText::IsWasteful() const
{
    // Compacting costs a copy of the text: worth it once the stores hold
    // more than twice the text and a megabyte besides, so that its cost
    // spreads over at least that many bytes of edits.
    const u64 stored = StoredEnd();
    return stored > 2 * u64(m_Size) + (1u << 20) || stored > 0xC0000000u;
}

namespace
{

// The first chunk's size, and the largest a chunk grows to unless one
// insertion needs more.
const u32 kFirstChunk = 4096;
const u32 kLargestChunk = 16u << 20;

} // namespace

u32 MarkupText::StoredEnd() const
{
    return m_Added.empty() ? u32(m_Source.size())
                           : m_Added.back().base + u32(m_Added.back().bytes.size());
}

u32 MarkupText::Store(const char* text, u32 length)
{
    if (length == 0)
        return StoredEnd();
    if (m_Added.empty() || m_Added.back().bytes.capacity() - m_Added.back().bytes.size() < length)
    {
        u32 base = u32(m_Source.size());
        u32 room = kFirstChunk;
        if (!m_Added.empty())
        {
            const String& last = m_Added.back().bytes;
            base = m_Added.back().base + u32(last.capacity());
            room = u32(std::min<std::size_t>(2 * last.capacity(), kLargestChunk));
        }
        String bytes;
        bytes.reserve(std::max(room, length));
        m_Added.push_back(Chunk{base, std::move(bytes)});
    }
    Chunk& chunk = m_Added.back();
    const u32 stored = chunk.base + u32(chunk.bytes.size());
    chunk.bytes.append(text, length);
    return stored;
}

const char* MarkupText::AtAdded(u32 at) const
{
    const auto after = std::upper_bound(m_Added.begin(), m_Added.end(), at,
                                        [](u32 a, const Chunk& c) { return a < c.base; });
    return (after - 1)->bytes.data() + (at - (after - 1)->base);
}

MarkupText::Renamer::Renamer(const MarkupText& text) : m_Text(text)
{
    m_Offsets.resize(text.m_Pieces.size());
    u32 offset = 0;
    for (u32 piece = text.m_Head; piece != kNone; piece = text.m_Pieces[piece].next)
    {
        m_Offsets[piece] = offset;
        offset += text.m_Pieces[piece].length;
    }
}

void MarkupText::Renamer::operator()(u32& at) const
{
    const u32 piece = m_Text.Locate(at);
    at = m_Offsets[piece] + at - m_Text.m_Pieces[piece].start;
}

// ---- the index of pieces by stored start ----------------------------------------

namespace
{

const std::size_t kBlockEntries = 128;

} // namespace

void MarkupText::Starts::Clear()
{
    m_Blocks.clear();
    m_Order.clear();
    m_Firsts.clear();
    m_Spare.clear();
}

std::size_t MarkupText::Starts::BlockOf(u32 start) const
{
    const auto after = std::upper_bound(m_Firsts.begin(), m_Firsts.end(), start);
    return after == m_Firsts.begin() ? 0 : std::size_t(after - m_Firsts.begin() - 1);
}

u32 MarkupText::Starts::NewBlock()
{
    if (!m_Spare.empty())
    {
        const u32 index = m_Spare.back();
        m_Spare.pop_back();
        return index;
    }
    // Blocks are given their full size at once, so that they never grow.
    m_Blocks.emplace_back();
    m_Blocks.back().reserve(kBlockEntries);
    return u32(m_Blocks.size() - 1);
}

void MarkupText::Starts::Insert(u32 start, u32 piece)
{
    if (m_Order.empty())
    {
        m_Order.push_back(NewBlock());
        m_Firsts.push_back(start);
    }
    // Inserted text takes the highest names: its pieces go at the very end.
    const std::size_t index = start >= m_Firsts.back() ? m_Firsts.size() - 1 : BlockOf(start);
    Block& block = m_Blocks[m_Order[index]];
    if (block.empty() || block.back().start < start)
        block.push_back(Entry{start, piece});
    else
        block.insert(std::upper_bound(block.begin(), block.end(), start,
                                      [](u32 s, const Entry& e) { return s < e.start; }),
                     Entry{start, piece});
    m_Firsts[index] = block.front().start;
    if (block.size() < kBlockEntries)
        return;
    // A full block gives its upper half to a new one after it.
    const u32 made = NewBlock();
    Block& full = m_Blocks[m_Order[index]]; // NewBlock may have moved it
    Block& upper = m_Blocks[made];
    upper.assign(full.begin() + kBlockEntries / 2, full.end());
    full.resize(kBlockEntries / 2);
    m_Firsts.insert(m_Firsts.begin() + std::ptrdiff_t(index + 1), upper.front().start);
    m_Order.insert(m_Order.begin() + std::ptrdiff_t(index + 1), made);
}

void MarkupText::Starts::Erase(u32 start)
{
    const std::size_t index = BlockOf(start);
    Block& block = m_Blocks[m_Order[index]];
    auto at = std::lower_bound(block.begin(), block.end(), start,
                               [](const Entry& e, u32 s) { return e.start < s; });
    block.erase(at);
    if (!block.empty())
        m_Firsts[index] = block.front().start;
    else if (m_Order.size() > 1)
    {
        m_Spare.push_back(m_Order[index]);
        m_Order.erase(m_Order.begin() + std::ptrdiff_t(index));
        m_Firsts.erase(m_Firsts.begin() + std::ptrdiff_t(index));
    }
}

u32 MarkupText::Starts::Find(u32 at) const
{
    const Block& block = m_Blocks[m_Order[BlockOf(at)]];
    auto after = std::upper_bound(block.begin(), block.end(), at,
                                  [](u32 s, const Entry& e) { return s < e.start; });
    return (after - 1)->piece;
}

} // namespace qel
