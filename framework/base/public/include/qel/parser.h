// The parser of the sectioned text format.
//
//   ; a line comment, to the end of the line
//   ;* a batch comment, over lines, up to *;  (the rest of that line too)
//   {Object:Lamp("desk", 60)        a section: identifier, then a name entry
//       Colour(255 200 90)          an entry: parameters by commas or spaces
//       Shade("linen",,)            empty parameters, a trailing one too
//       {Light Power(60)}           a nested section
//   }
//
// A section is '{', its identifier, an optional name entry (after ':' or
// starting with '('), then entries and sections up to '}'. An entry is its
// name, which ends only at white space, '(', '}' or the end (so ':' ','
// ')' and ';' can be part of it), then an optional parameter list: quoted
// texts (white space kept), words, or nothing between two commas. `name()`
// has one empty parameter, `name` none. Bytes 0x80-0xFF are ordinary word
// characters.
//
// A syntax error is fatal: "Missing end of batch comment "*;"", "Missing
// '{'", "Missing 'Section Identifier' after '{'", "Missing '}'", "Missing
// 'Entry Name' after ':'" or "Missing ')'", followed by "\n\nTree trace: "
// and the nodes being read, innermost first ("Sub <- Object Named Lamp <-
// a.txt"; a comment kept in the tree is the innermost while it is read),
// reported as a fatal error; if the host lets the process go on,
// ParseFile gives up the file and returns null.
//
// Sections may nest as deep as memory allows: nothing in the parser or the
// tree recurses on depth.
//
// One parser for the process, created on first use and not locked: files
// are parsed by one thread at a time.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/parsedstringpool.h>
#include <qel/types.h>

#include <atomic>
#include <vector>

namespace qel
{

class InputStream;
class ParsedComment;
class ParsedEntry;
class ParsedFile;
class ParsedNode;
class ParsedRoot;
class ParsedSection;

// Where and what a syntax error is, for tools that check files.
struct ParseError
{
    u32 line;   // from 1
    u32 column; // from 1; one past the last byte at the end of the file
    char message[64];
    char trace[1024]; // innermost node first, cut to fit
};

class QEL_API Parser
{
public:
    QEL_ALLOCATION_OPERATORS

    // The tree of the file at the virtual path `path`, which the caller
    // owns; null when the file cannot be opened (no report) or holds a
    // syntax error (reported).
    static ParsedFile* ParseFile(const char* path);
    // The same without the report: a syntax error fills `error` and gives
    // null. With no syntax error `error` is untouched.
    static ParsedFile* CheckFile(const char* path, ParseError& error);
    // Keep comments in the tree as comment nodes (on at creation).
    static void SetParsingComment(bool parsing);

    static Parser& GetSingletonInstance()
    {
        Parser* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? *instance : *CreateSingletonInstance();
    }

protected:
    enum StopSet : u32
    {
        WhiteSpace = 0,   // ReadUntil: stops at anything but white space
        SectionEnd = 1,   // end of a section identifier
        EntryNameEnd = 2, // end of an entry name
        QuotedEnd = 3,    // end of a quoted parameter
        WordEnd = 4,      // end of an unquoted parameter
        CommentEnd = 5,   // end of a line comment's text
    };

    Parser();
    void Initialize();
    static void InitializeSet(bool* set, bool value);
    char GetCurrent() const { return m_Current; }
    // Inline within a line and a block; the rest is MoveOn.
    void MoveNext()
    {
        if (m_Next != m_End && m_Current != '\n')
            m_Current = char(*m_Next++);
        else
            MoveOn();
    }
    // Steps to the first byte of the set's stop bytes; the bytes passed.
    u32 ReadUntil(u32 set);
    // The record of the text up to the stop byte, interned with a
    // reference for the caller; null when the current byte stops it at
    // once.
    ParsedStringPool::Record* ReadString(u32 set);
    // Skips white space and comments (kept in the tree when parsing them)
    // and classifies the current byte: 'a' for the start of a word, else
    // the byte itself (0 at the end of the file).
    char ReadCode()
    {
        const unsigned char code = m_Code[static_cast<unsigned char>(m_Current)];
        return code != Skipped ? char(code) : SkipToCode();
    }
    // The file's items. A node is made once it has been read, with room
    // for exactly its parameters or children; until then they wait in the
    // parser's lists, and the sections being read on its stack, which
    // takes the place of recursion.
    void Read(ParsedFile* file);

private:
    template <class T, class Storage>
    friend class Singleton;

    typedef ParsedStringPool::Record Record;

    ~Parser() = default;
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    static Parser* CreateSingletonInstance();
    ParsedFile* Parse(const char* path, ParseError* error);
    // Destroys what the lists and the stack hold after a failure.
    void Abandoned();
    void MoveOn();
    // A text that ends within the line and the block, from the current
    // byte on: it is hashed and the stop byte becomes current. False, with
    // nothing read, for any other text.
    bool ScanInBlock(u32 set, const char*& text, u32& length, u32& hash);
    // Any other text, byte by byte (out of line, so that the common case
    // keeps a small frame).
    Record* ReadAcross(u32 set);
    char SkipToCode();
    // Skips a line comment's bytes, up to its line end.
    void SkipLine();
    void SkipBatchComment(bool inComment);
    void ReadComment();
    // A section's identifier and name entry, after its '{'.
    void ReadHead();
    // An entry, or the name entry of the section being read, which is made
    // with the section.
    void ReadEntry(bool name);
    // Links an entry made at its place to its name and `count` parameters.
    void LinkEntry(ParsedEntry* entry, Record* name, Record* const* parameters, u32 count);
    // The bytes of an entry of `count` parameters.
    u32 EntryBytes(u32 count) const;
    // The section being read, once its '}' is, and its name entry behind it.
    void CloseSection();
    // Leaves a node that failed to be linked dead in the file's chunks,
    // the texts and children it was given still held by the parser.
    void Bury(ParsedNode* node, u32& first, u32 bytes);
    // Room for a node in the file's chunks.
    void* Place(u32 bytes);
    void* PlaceInNewChunk(u32 bytes);
    // Reports a syntax error and abandons the file. The trace starts at
    // the node being read below the sections being read (`below`, of
    // identifier `identifier`), or else at the innermost of them.
    [[noreturn]] void Fail(const char* message, bool below = false,
                           const Record* identifier = nullptr);

    // The bytes read so far, the current one included.
    u64 GetPosition() const { return m_BlockPosition + u64(m_Next - m_Block); }

    u64 m_BlockPosition; // of the block's first byte in the file
    u64 m_Size;
    InputStream* m_Stream;
    ParsedFile* m_File; // the file being read, which holds its nodes
    u64 m_NodeBytes;    // in its chunks so far
    u32 m_ChunkBytes;   // the last chunk's size
    char m_Current;
    u32 m_Line;
    // The column is worked out only for an error: the position after the
    // last line end passed, and one more once the end of the file is.
    u64 m_LineStart;
    u32 m_PastEnd;
    ParseError* m_Error; // while checking: where a syntax error goes
    // The stream is read in blocks, never past m_Size; MoveNext takes one
    // byte of the block. A zero follows the block's last byte, and the
    // texts in the block are hashed a word at a time, which reads up to
    // seven bytes past a text: hence the room behind the block.
    enum : u32
    {
        BlockSize = 16384,
        BlockRoom = 8
    };
    const unsigned char* m_Next;
    const unsigned char* m_End;
    unsigned char m_Block[BlockSize + BlockRoom];
    bool m_ParsingComment;
    bool m_WordStart[256];
    // What ReadCode gives for each byte, or Skipped for white space and
    // ';', which it passes first.
    enum : unsigned char
    {
        Skipped = 0xFF
    };
    unsigned char m_Code[256];
    bool m_Stop[6][256];
    // The stop bytes of a text scanned within the block: the set's, and a
    // line end (lines are counted as they are passed) and a zero (the
    // block's end, or one in the file) for every set, and a carriage
    // return, which a comment's text leaves out, for a comment's.
    bool m_StopInBlock[6][256];

    // The sections being read, below the file: their identifiers, first
    // children in m_Children and name entries (whether they have one, its
    // name, and its parameters from `parameters` on in m_Parameters).
    struct Open
    {
        Record* identifier;
        u32 first;
        bool named;
        Record* name;
        u32 parameters;
    };
    std::vector<Open, GeneralAllocator<Open>> m_Open;
    // The children of the file and of the sections being read, in order; a
    // null child is the place of an entry being read.
    std::vector<ParsedNode*, GeneralAllocator<ParsedNode*>> m_Children;
    // The entry being read: its name and parameters, and whether it is
    // the name entry of the section being read. The parameters of the
    // sections' name entries wait below those of the entry, in order.
    Record* m_EntryName;
    bool m_ReadingName;
    std::vector<Record*, GeneralAllocator<Record*>> m_Parameters;
    // Where a node's items start, in entries and in sections.
    u32 m_EntryItems;
    u32 m_SectionItems;

    static std::atomic<Parser*> ms_SingletonInstance;
};

} // namespace qel
