// The text of a markup document, held as pieces so that an edit never moves
// the text around it.
//
// Bytes are stored once and never move: the loaded text first, then every
// inserted text appended to chunks of doubling size (so that a growing
// document neither copies what it inserted nor asks for twice the memory).
// A stored byte is named by its offset in the stores taken end to end, each
// chunk counted at its full size, which stays its name for as long as it is
// part of the text. The text is a list of pieces, each a run of stored
// bytes within one store. A place in the text is a mark: just before or
// just after a stored byte, so that a mark keeps to the byte whatever is
// inserted or removed elsewhere.
//
// Edits replace the text between two marks: they split at most two pieces,
// drop the pieces between and link one new piece, so their cost does not
// grow with the document; a piece replaced whole is rewritten over its own
// bytes when they have room. Whole() gathers the text once after an edit.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <string>
#include <vector>

namespace qel
{

class QEL_API MarkupText
{
public:
    QEL_ALLOCATION_OPERATORS

    typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> String;

    // No byte: past either end of the text.
    static const u32 kNone = 0xFFFFFFFFu;

    // Just before or just after the stored byte `at`; {kNone, false} is the
    // end of the text.
    struct Mark
    {
        u32 at;
        bool after;
    };

    // The text becomes `text`, stored afresh.
    void Assign(String&& text);
    // Hands out the store of the text when it holds `length` bytes without
    // growing (so that filling it cannot throw), to be filled and given
    // back by Assign: a document loaded after another then reuses its
    // memory. Until then only Assign may be called; inserted text and the
    // gathered text stay where they are. An empty String otherwise.
    String Release(std::size_t length)
    {
        String store;
        if (m_Source.capacity() >= length)
            store.swap(m_Source);
        return store;
    }

    u32 Size() const { return m_Size; }
    // The stored byte `at` and those after it in its piece.
    const char* At(u32 at) const
    {
        if (at < m_Source.size() || m_Added.empty())
            return m_Source.data() + at;
        const Chunk& last = m_Added.back();
        return at >= last.base ? last.bytes.data() + (at - last.base) : AtAdded(at);
    }
    // The first and last bytes of the text, and a byte's neighbours in it;
    // kNone past the ends.
    u32 First() const { return m_Head == kNone ? kNone : m_Pieces[m_Head].start; }
    u32 Last() const;
    u32 Next(u32 at) const;
    u32 Previous(u32 at) const;

    // Replaces the text between the marks (`from` not after `to`) by
    // `length` bytes; returns the stored offset of the first of them.
    // The text of one whole piece (a start tag written anew, most often)
    // is rewritten in its piece, in place when it grows no longer than it
    // ever was.
    u32 Replace(Mark from, Mark to, const char* text, u32 length);
    // Appends the text between the marks to `out`.
    void Append(Mark from, Mark to, String& out) const;
    // The text between the marks when it is one run of stored bytes.
    bool Span(Mark from, Mark to, const char*& data, u32& length) const;
    // The piece that holds the stored byte `at`, to be recalled later.
    u32 PieceOf(u32 at) const { return Locate(at); }
    // Makes the look-ups that follow try `piece` first: a piece kept from
    // before an edit that took its bytes away holds none they look for,
    // so any value is safe.
    void Recall(u32 piece) const
    {
        if (piece < m_Pieces.size())
            Remember(piece);
    }
    // The whole text, gathered after an edit.
    const String& Whole() const;
    // The offset in the text of the place a mark names.
    u32 Offset(Mark mark) const;

    // Whether the stores hold so much removed text that the next edit
    // should compact them first.
    bool IsWasteful() const;
    // Stores the text afresh as one piece. `visit(renamer)` passes the
    // stored offset of every byte the caller keeps to renamer(u32&), which
    // renames it for the new stores.
    template <class Visitor>
    void Compact(Visitor&& visit)
    {
        Renamer renamer(*this);
        visit(renamer);
        // The gathered text becomes the stored one, and the old store the
        // room the next gathering fills.
        if (&Whole() != &m_Source)
            m_Source.swap(m_Whole);
        Reset();
    }

    // Renames stored offsets into offsets in the gathered text.
    class QEL_API Renamer
    {
    public:
        explicit Renamer(const MarkupText& text);
        void operator()(u32& at) const;

    private:
        const MarkupText& m_Text;
        std::vector<u32, GeneralAllocator<u32>> m_Offsets; // each piece's offset in the text
    };

private:
    struct Piece
    {
        u32 start;
        u32 length;
        u32 previous;
        u32 next;
        // The stored bytes from `start` that are the piece's alone: its
        // text, then what rewriting it shorter left unused, which rewriting
        // it longer may take back.
        u32 room;
    };

    // One piece over the stored text, nothing added.
    void Reset();
    u32 Locate(u32 at) const;
    // Puts the piece first among those last located.
    void Remember(u32 piece) const;
    u32 Last(u32 piece) const;
    // Past the last stored byte of the piece.
    u32 End(u32 piece) const { return m_Pieces[piece].start + m_Pieces[piece].length; }
    // The piece that starts at the mark, splitting one if needed; kNone at
    // the end of the text.
    u32 Split(Mark mark);
    u32 NewPiece(u32 start, u32 length);
    // Replaces the whole text of a piece, which keeps its place in the
    // list: over its own bytes when they have room, else over bytes
    // stored anew.
    u32 Rewrite(u32 piece, const char* text, u32 length);

    // A run of inserted text, named from `base` on. Its bytes never grow
    // past the room reserved for them, so that they never move; the next
    // chunk's names start past that room.
    struct Chunk
    {
        u32 base;
        String bytes;
    };
    const char* AtAdded(u32 at) const;
    // Stores the bytes after those inserted so far; returns the name of the
    // first.
    u32 Store(const char* text, u32 length);
    // The name the next inserted byte would take.
    u32 StoredEnd() const;

    String m_Source;
    std::vector<Chunk, GeneralAllocator<Chunk>> m_Added;
    std::vector<Piece, GeneralAllocator<Piece>> m_Pieces;
    u32 m_Free = kNone; // unused slots of m_Pieces, linked through next
    u32 m_Head = kNone;
    u32 m_Tail = kNone;
    u32 m_Size = 0;
    u32 m_Live = 0; // pieces in the text
    // The piece of each stored run, by its first stored byte: sorted
    // blocks of a few hundred entries, so that a look-up is two binary
    // searches over packed arrays and an insertion moves one block's tail
    // (pieces of inserted text, the most frequent, go at the very end).
    class Starts
    {
    public:
        void Clear();
        void Insert(u32 start, u32 piece);
        void Erase(u32 start);
        // The piece whose start is the last at or before `at`.
        u32 Find(u32 at) const;

    private:
        struct Entry
        {
            u32 start;
            u32 piece;
        };
        typedef std::vector<Entry, GeneralAllocator<Entry>> Block;
        std::size_t BlockOf(u32 start) const;

        // A block to fill, spare or new.
        u32 NewBlock();

        // Blocks stay where they are made; m_Order lists them by their
        // first start, so that making or dropping one moves indices only.
        std::vector<Block, GeneralAllocator<Block>> m_Blocks;
        std::vector<u32, GeneralAllocator<u32>> m_Order;
        std::vector<u32, GeneralAllocator<u32>> m_Firsts; // each listed block's first start
        std::vector<u32, GeneralAllocator<u32>> m_Spare;  // emptied blocks, not listed
    };

    Starts m_Starts;
    // The pieces last located, newest first: edits and reads keep to a
    // few places at a time.
    mutable u32 m_Recent[4] = {kNone, kNone, kNone, kNone};
    mutable String m_Whole;
    mutable bool m_Gathered = true;
};

} // namespace qel
