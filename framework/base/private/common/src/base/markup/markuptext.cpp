#include "base/markup/markuptext.h"

namespace qel
{

void MarkupText::Assign(String&& text)
{
    m_Source.swap(text);
    m_Added.clear();
    m_Pieces.clear();
    m_Starts.clear();
    m_Free = m_Head = m_Tail = kNone;
    m_Size = u32(m_Source.size());
    m_Live = 0;
    m_Whole.clear();
    m_Gathered = true;
    if (m_Size != 0)
    {
        m_Head = m_Tail = NewPiece(0, m_Size);
        m_Starts.emplace(0, m_Head);
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
    m_Pieces[index] = Piece{start, length, kNone, kNone};
    ++m_Live;
    return index;
}

u32 MarkupText::Locate(u32 at) const
{
    if (m_Live == 1)
        return m_Head;
    auto found = m_Starts.upper_bound(at);
    --found;
    return found->second;
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
    return m_Pieces[piece].start + m_Pieces[piece].length - 1;
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
    first.length = at - first.start;
    second.previous = index;
    second.next = first.next;
    if (first.next != kNone)
        m_Pieces[first.next].previous = tail;
    else
        m_Tail = tail;
    first.next = tail;
    m_Starts.emplace(at, tail);
    return tail;
}

u32 MarkupText::Replace(Mark from, Mark to, const char* text, u32 length)
{
    const u32 first = Split(from);
    const u32 stop = Split(to);
    u32 before = first == kNone ? m_Tail : m_Pieces[first].previous;
    for (u32 at = first; at != stop;)
    {
        Piece& gone = m_Pieces[at];
        const u32 next = gone.next;
        m_Size -= gone.length;
        m_Starts.erase(gone.start);
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

    const u32 stored = u32(m_Source.size() + m_Added.size());
    m_Added.append(text, length);
    m_Size += length;
    m_Gathered = false;
    if (length == 0)
        return stored;
    // Text typed on after the last insertion grows its piece.
    if (before != kNone && m_Pieces[before].start + m_Pieces[before].length == stored &&
        stored > m_Source.size())
    {
        m_Pieces[before].length += length;
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
    m_Starts.emplace(stored, made);
    return stored;
}

void MarkupText::Append(Mark from, Mark to, String& out) const
{
    if (from.at == kNone)
        return;
    u32 piece = Locate(from.at);
    u32 at = from.at + (from.after ? 1 : 0);
    const u32 last = to.at == kNone ? m_Tail : Locate(to.at);
    const u32 stop = to.at + (to.after ? 1 : 0);
    for (;;)
    {
        const Piece& p = m_Pieces[piece];
        const u32 end = piece == last && to.at != kNone ? stop : p.start + p.length;
        out.append(At(at), end - at);
        if (piece == last)
            return;
        piece = p.next;
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
    const u64 stored = u64(m_Source.size()) + m_Added.size();
    return stored > 2 * u64(m_Size) + (1u << 20) || stored > 0xC0000000u;
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

} // namespace qel
