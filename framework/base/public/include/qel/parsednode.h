// The tree the parser builds from a sectioned text file: a file node holding
// sections and entries, sections holding more of both and an optional name
// entry, entries holding parameter lists, and comments when the parser keeps
// them. Every text is a handle into the parsed string pool.
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
#include <qel/inlinevector.h>
#include <qel/parsedstring.h>
#include <qel/types.h>

#include <cstdint>

namespace qel
{

class OutputStream;
class ParsedRoot;

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

    u32 GetType() const { return m_Type; }
    // Null when the node has none.
    const char* GetIdentifier() const { return m_Identifier.Get(); }
    void SetIdentifier(const char* identifier) { m_Identifier.Set(identifier); }
    // Null for a node that is no one's child.
    ParsedRoot* GetParent() const { return m_Parent; }
    // The topmost ancestor; a node without parent is its own root (null when
    // it is not a root).
    ParsedRoot* GetRoot();
    // Prints the node into a new file at the virtual path `path`.
    void PrintOut(const char* path);

protected:
    explicit ParsedNode(u32 type, bool root = false)
        : m_Type(type), m_InFile(false), m_Root(root), m_Parent(nullptr)
    {
    }
    ParsedNode(const ParsedNode&) = delete;
    ParsedNode& operator=(const ParsedNode&) = delete;

private:
    friend class ParsedRoot;
    friend class ParsedSection;
    friend class ParsedFile;
    friend class Parser; // hands its pooled references over

    // Destroys a node that its owner gives up: one that lives in its file's
    // chunks only has its destructor run, its memory going with the file.
    static void Destroy(ParsedNode* node);

    u32 m_Type;
    bool m_InFile; // made by the parser in its file's chunks
    bool m_Root;   // a ParsedRoot
    ParsedString m_Identifier;
    ParsedRoot* m_Parent;
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
    ParsedEntry() : ParsedNode(EntryType) {}
    void Print(OutputStream& out, u32 indent) override;

    u32 GetParameterCount() const { return u32(m_Parameters.size()); }
    // Null for an empty parameter (and for an index out of range).
    const char* GetParameter(u32 index) const
    {
        return index < m_Parameters.size() ? m_Parameters[index].Get() : nullptr;
    }
    // Null adds an empty parameter.
    void AddParameter(const char* parameter);
    // Inserts before `index`; an index above the count is ignored.
    void AddParameter(const char* parameter, u32 index);
    void ReleaseParameter(u32 index);
    void ReleaseParameters() { m_Parameters.clear(); }

private:
    friend class Parser;

    // Entries rarely have more than three parameters or sections more than
    // four children: so many are kept in the node itself.
    InlineVector<ParsedString, 3> m_Parameters;
};

class QEL_API ParsedRoot : public ParsedNode
{
public:
    explicit ParsedRoot(u32 type) : ParsedNode(type, true) {}
    ~ParsedRoot() override;
    // PrintHead, the children at the indent it gives, PrintTail.
    void Print(OutputStream& out, u32 indent) override;

    u32 GetChildCount() const { return u32(m_Children.size()); }
    ParsedNode* GetChild(u32 index) const
    {
        return index < m_Children.size() ? m_Children[index] : nullptr;
    }
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
    InlineVector<ParsedNode*, 4> m_Children;
};

class QEL_API ParsedSection : public ParsedRoot
{
public:
    ParsedSection() : ParsedRoot(SectionType), m_Name(nullptr) {}
    ~ParsedSection() override;

    // The name entry, null when the section has none.
    ParsedEntry* GetName() const { return m_Name; }
    // Takes the entry over, destroying the one held before.
    void SetName(ParsedEntry* name);

protected:
    // Its line "{" identifier, then ":" and the name entry; children one
    // level deeper; then "}".
    u32 PrintHead(OutputStream& out, u32 indent) override;
    void PrintTail(OutputStream& out, u32 indent) override;

private:
    ParsedEntry* m_Name;
};

// The root of one parsed file; its identifier is the file's path.
//
// The nodes the parser makes for the file live in a few large blocks that
// the file owns (instead of a block each): releasing one of them through
// its parent runs its destructor, and its memory goes back with the file.
// Such a node is never deleted by hand (the tree owns it). Nodes made with
// new and added by hand come and go as everywhere else.
class QEL_API ParsedFile : public ParsedRoot
{
public:
    ParsedFile() : ParsedRoot(FileType), m_Chunks(nullptr), m_Free(nullptr), m_FreeEnd(nullptr) {}
    ~ParsedFile() override;

protected:
    // Its children at its own indent.
    u32 PrintHead(OutputStream& out, u32 indent) override;

private:
    friend class Parser;

    struct Chunk;

    // Room for a node of the file, from the newest chunk when it has room;
    // null when no memory was left (reported by the allocator).
    void* Allocate(u32 size, u32 alignment)
    {
        const std::uintptr_t free = reinterpret_cast<std::uintptr_t>(m_Free);
        const std::uintptr_t at = (free + alignment - 1) & ~std::uintptr_t(alignment - 1);
        if (at + size <= reinterpret_cast<std::uintptr_t>(m_FreeEnd))
        {
            m_Free = reinterpret_cast<char*>(at + size);
            return reinterpret_cast<char*>(at);
        }
        return AllocateInNewChunk(size, alignment);
    }
    void* AllocateInNewChunk(u32 size, u32 alignment);
    template <class Node>
    Node* Make()
    {
        void* place = Allocate(u32(sizeof(Node)), u32(alignof(Node)));
        Node* node = place ? new (place) Node : nullptr;
        if (node)
            node->m_InFile = true;
        return node;
    }

    Chunk* m_Chunks; // the newest first
    char* m_Free;    // the room left in the newest one
    char* m_FreeEnd;
};

} // namespace qel
