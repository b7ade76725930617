// The tree the parser builds from a sectioned text file: a file node holding
// sections and entries, sections holding more of both and an optional name
// entry, entries holding parameter lists, and comments when the parser keeps
// them. Every text is interned in the parsed string pool.
//
// A root owns its children and a section its name entry: destroying a node
// destroys everything under it. Print writes the node back in the sectioned
// text format, lines ending in CR LF and one tab per indent level:
//   comment   ";" and its text
//   entry     the name, then "(" the parameters ")" when it has any, each
//             parameter between double quotes and separated by ", " (an
//             empty parameter prints nothing, not even quotes)
//   section   "{" the identifier, then ":" and the name entry when it has
//             one; its children one level deeper; then "}"
//   file      its children at the same level
//
// Lines deeper than 64 levels keep 64 tabs, so that a deeply nested tree
// prints in a size linear in its own (one tab per level would make it
// quadratic). Destroying and printing a tree never recurse on its depth: a
// root prints the whole tree below it itself, the roots in it through
// their PrintHead and PrintTail, the other nodes through their Print.
//
// Every tree the parser makes prints as text that reads back as the same
// tree. The format has no escape, so two texts print otherwise: a
// parameter holding a double quote, which only a word may, prints without
// quotes, and a comment whose text begins with '*' prints ";", a carriage
// return (which reading drops), then the text, since ";*" opens a batch
// comment. A tree made by hand with texts the parser never makes (a line
// end in a comment, white space in an entry name, an empty parameter
// text...) prints them as they are, and does not read back the same.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

#include <cstdint>

namespace qel
{

class OutputStream;
class ParsedRoot;

// A node keeps its links to its texts, its parent and its children in 32
// bits each (see ParsedLinks in base/loader/parsedlinks.h), and the
// parser's nodes keep their parameters or children inside them, exactly as
// many as they have, a section's name entry right behind it: a parsed
// file's nodes take less than twice its size (with a unique name and
// comment per section, their pooled texts and the pool's table add two
// fifths of it more). A node edited by hand keeps them in a list of its
// own instead, a section its name entry too.
//
// The nodes a file's blocks hold are packed to 4 bytes, their vtable
// pointer included, so that they follow each other without padding: a
// node of a 20-byte head and an even number of links would otherwise take
// 4 bytes more on a 64-bit host (a tenth of a file's size).
#pragma pack(push, 4)
class QEL_API ParsedNode
{
public:
    enum NodeType : u32
    {
        EntryType = 1,
        SectionType = 3,
        FileType = 4,
        CommentType = 5,
    };

    QEL_ALLOCATION_OPERATORS

    virtual ~ParsedNode();
    virtual void Print(OutputStream& out, u32 indent) = 0;

    u32 GetType() const { return m_Word & TypeBits; }
    // Null when the node has none.
    const char* GetIdentifier() const;
    void SetIdentifier(const char* identifier);
    // Null for a node that is no one's child.
    ParsedRoot* GetParent() const;
    // The topmost ancestor; a node without parent is its own root (null when
    // it is not a root).
    ParsedRoot* GetRoot();
    // Prints the node into a new file at the virtual path `path`.
    void PrintOut(const char* path);

protected:
    // Types are below 16.
    explicit ParsedNode(u32 type) : m_Word(type & TypeBits) {}
    ParsedNode(const ParsedNode&) = delete;
    ParsedNode& operator=(const ParsedNode&) = delete;

private:
    friend class ParsedEntry;
    friend class ParsedRoot;
    friend class ParsedSection;
    friend class ParsedFile;
    friend class Parser;
    friend struct ParsedLinks;

    enum : u32
    {
        TypeBits = 0x0F,
        InFile = 0x10, // made by the parser in its file's chunks
        Root = 0x20,   // a ParsedRoot
        Listed = 0x40, // the items are in a list, which the first one links to
        Far = 0x80,    // some link is far (see parsedlinks.h)
        // Items dropped from the end of those held in the node: the room
        // they had is kept in the link past the last one (see parsedlinks.h).
        Shrunk = 0x100,
        // A parser's section whose name entry follows it in its chunk (see
        // parsedlinks.h).
        NamedAfter = 0x200,
        CountShift = 10,
        MaxCount = 0x3FFFFF, // items held in the node
    };

    // The library's nodes: their type and flags.
    struct Flagged
    {
    };
    ParsedNode(Flagged, u32 word) : m_Word(word) {}

    // Destroys a node that its owner gives up: one that lives in its file's
    // chunks has its destructor run and is marked dead in place, its memory
    // going with the file.
    static void Destroy(ParsedNode* node);

    u32 m_Identifier = 0; // to the text's pool record
    u32 m_Parent = 0;
    u32 m_Word; // the type, the flags, the items held in the node
};

// A comment kept by the parser: its text is the identifier.
class QEL_API ParsedComment : public ParsedNode
{
public:
    ParsedComment() : ParsedNode(CommentType) {}
    void Print(OutputStream& out, u32 indent) override;
};

class QEL_API ParsedEntry : public ParsedNode
{
public:
    ParsedEntry() : ParsedNode(Flagged(), EntryType | Listed) {}
    ~ParsedEntry() override;
    void Print(OutputStream& out, u32 indent) override;

    u32 GetParameterCount() const;
    // Null for an empty parameter (and for an index out of range).
    const char* GetParameter(u32 index) const;
    // Null adds an empty parameter.
    void AddParameter(const char* parameter);
    // Inserts before `index`; an index above the count is ignored.
    void AddParameter(const char* parameter, u32 index);
    void ReleaseParameter(u32 index);
    void ReleaseParameters();

private:
    friend class Parser;
    friend struct ParsedLinks;

    // The parser's entries: `count` parameters from here on.
    explicit ParsedEntry(u32 count)
        : ParsedNode(Flagged(), EntryType | InFile | count << CountShift)
    {
    }

    // The parameters' links to their pool records, the parser's past the
    // end of the object.
    u32 m_Items = 0;
};

class QEL_API ParsedRoot : public ParsedNode
{
public:
    // Its type below 16.
    explicit ParsedRoot(u32 type) : ParsedNode(Flagged(), (type & TypeBits) | Root | Listed) {}
    ~ParsedRoot() override;
    // PrintHead, the children at the indent it gives, PrintTail.
    void Print(OutputStream& out, u32 indent) override;

    u32 GetChildCount() const;
    ParsedNode* GetChild(u32 index) const;
    // Takes the node over and appends it. When the list cannot grow (the
    // allocator reported it and std::bad_alloc goes on), the node is
    // destroyed.
    void AddChild(ParsedNode* node);
    // Inserts before `index`, the same way; an index above the count is
    // ignored and the node is not added (nor taken over).
    void AddChild(ParsedNode* node, u32 index);
    // Remove and destroy one child, or all of them.
    void ReleaseChild(u32 index);
    void ReleaseChild(ParsedNode* node);
    void ReleaseChildren();

    // The section at `path` below this root: steps separated by '^', each a
    // section identifier, optionally ':' and a name. A step matches the
    // first child section whose identifier begins with the step's
    // identifier and, with a name part, whose name entry's name begins with
    // it (an empty name part matches any section). Null when a step
    // matches nothing.
    ParsedRoot* FindChild(const char* path);

protected:
    // What the root prints before its children, with the indent they take:
    // nothing for a plain root, whose children go one level deeper.
    virtual u32 PrintHead(OutputStream& out, u32 indent);
    // What it prints after them: nothing for a plain root.
    virtual void PrintTail(OutputStream& out, u32 indent);

private:
    friend class Parser;
    friend class ParsedFile;
    friend class ParsedSection;
    friend struct ParsedLinks;

    // The parser's sections: `count` children from m_Items on.
    ParsedRoot(u32 type, u32 count)
        : ParsedNode(Flagged(), type | Root | InFile | count << CountShift)
    {
    }

    // The children's links, the parser's past the end of the object.
    u32 m_Items = 0;
};

class QEL_API ParsedSection : public ParsedRoot
{
public:
    ParsedSection() : ParsedRoot(SectionType) {}
    ~ParsedSection() override;

    // The name entry, null when the section has none.
    ParsedEntry* GetName() const;
    // Takes the entry over, destroying the one held before. When no list
    // can be had to keep it (the allocator reported it and std::bad_alloc
    // goes on), the entry is destroyed, the name held left as it was.
    void SetName(ParsedEntry* name);

protected:
    // Its line "{" identifier, then ":" and the name entry; children one
    // level deeper; then "}".
    u32 PrintHead(OutputStream& out, u32 indent) override;
    void PrintTail(OutputStream& out, u32 indent) override;

private:
    friend class Parser;

    explicit ParsedSection(u32 count) : ParsedRoot(SectionType, count) {}
};
#pragma pack(pop)

// The root of one parsed file; its identifier is the file's path.
//
// The nodes the parser makes for the file live in a few large blocks that
// the file owns (instead of a block each): releasing one of them through
// its parent runs its destructor, and its memory goes back with the file.
// Such a node is never deleted by hand (the tree owns it). Nodes made with
// new and added by hand come and go as everywhere else. Destroying the file
// goes through its blocks in order, dropping the texts of the nodes still
// there and deleting the nodes made by hand that they hold, rather than
// walking the tree.
class QEL_API ParsedFile : public ParsedRoot
{
public:
    ParsedFile() : ParsedRoot(FileType) {}
    ~ParsedFile() override;

protected:
    // Its children at its own indent.
    u32 PrintHead(OutputStream& out, u32 indent) override;

private:
    friend class Parser;

    struct Chunk;
    // Drops what the nodes in the chunks hold, without walking the tree.
    void ReleaseChunks();
    enum : u32
    {
        ChunkHeader = 16 // a chunk's bytes before its nodes
    };

    // Room for a node of the file (its size a multiple of 4) in the newest
    // chunk; null when that has no room left.
    void* Allocate(u32 size)
    {
        if (size > u32(m_FreeEnd - m_Free))
            return nullptr;
        char* at = m_Free;
        m_Free += size;
        return at;
    }
    // The same from a new chunk of `chunkBytes`; null when no memory was
    // left (reported by the allocator).
    void* AllocateInNewChunk(u32 size, u32 chunkBytes);

    Chunk* m_Chunks = nullptr; // the newest first
    char* m_Free = nullptr;    // the room left in the newest one, 4-byte aligned
    char* m_FreeEnd = nullptr;
};

} // namespace qel
