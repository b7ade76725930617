// An XML document with a current position: element search, attribute
// access and editing in place.
//
// Loading checks that the text is well-formed and builds an index of its
// elements (where each element's tags are, and its parent, first child and
// next sibling). The text is held in pieces that never move: an edit
// stores the new text apart and relinks the pieces around it, so its cost
// does not grow with the document, and the index, which names the bytes of
// each element's own tags, needs no update beyond the elements edited.
// The text stays exactly as it was loaded outside the edited parts;
// GetDocument gathers it once after an edit.
//
// Positions. Three elements make the position: the parent (the level being
// walked; the document itself at first), the main element at that level,
// and a child of the main element. FindElement moves the main position to
// the next element of the level, FindChildElement the child position to the
// next child of the main element; IntoElement makes the main element the
// parent (and the child the main element), OutOfElement goes back.
//
//     MarkupSTL doc("<scene><lamp power='60'>Desk</lamp></scene>");
//     doc.FindElement("scene");
//     doc.IntoElement();
//     while (doc.FindElement("lamp"))
//         use(doc.GetData(), doc.GetAttribute("power"));
//
// Texts: data and attribute values come back decoded and go in escaped.
// Line ends read as XML reads them: CR LF and a lone CR are one LF, in
// data, CDATA sections and attribute values alike. An attribute value then
// reads each white space character (tab, LF, CR) as a space; one written as
// a character reference ("&#10;") keeps its character. The data of an
// element is the text of an element without child elements (its CDATA
// sections included, comments and processing instructions left out); an
// element with children has none ("").
//
// Encodings. The API reads and writes UTF-8. A document in UTF-16 (little
// or big endian, told by its byte order mark or by its first bytes "<?" or
// "<" in UTF-16) or declared "ISO-8859-1" (or "latin1", "l1") is read as
// UTF-8, and GetDocument returns it so, its declaration unchanged (that
// text is a document again only for a UTF-8 one); Save writes it back in
// the encoding it came in (a character ISO-8859-1 lacks as a character
// reference, text that is not UTF-8 as U+FFFD in UTF-16). A document that
// declares any other encoding than these, "UTF-8" and "US-ASCII", or
// UTF-16 while it is not, is an error that names the encoding.
//
// The DOCTYPE. Its internal subset is read; no external entity is. The
// general entities it declares with a literal value are expanded in data
// and attribute values (their character references when declared, their
// entity references when used). Entity references expand to at most
// kMaxEntityExpansion bytes in all, over the whole document, nested ones
// and default values included: past that ("billion laughs") the document
// is refused at the reference. An entity that refers to itself, is
// external or unparsed, or holds markup ('<') where it is used is an error
// at the reference.
//
// Its attribute-list declarations give attributes default values and
// types. An element without an attribute declared with a default (a plain
// or #FIXED one, not #REQUIRED or #IMPLIED) reads as if it had it:
// GetAttribute returns the default, HasAttribute is true, and
// GetAttributeName lists such attributes after the element's own, in the
// order they are declared. Defaults are not written into the text:
// GetDocument and Save give the document as it came, and the index counts
// elements only, so element search and GetElementCount do not change.
// SetAttribute writes a defaulted attribute into the tag, where it becomes
// the element's own. Elements added by an edit take their defaults too. A
// value of an attribute declared with a type other than CDATA (ID,
// NMTOKENS, an enumeration...) reads without leading and trailing spaces
// and with each run of spaces as one. A default value is read as a value
// in a tag is, once, when the document is loaded; the entities it refers
// to must be declared before it. The first declaration of an attribute
// binds. Declarations after a reference to a parameter entity, which is
// not read, are checked but not used (the entity might have declared
// otherwise), unless the document is declared standalone.
//
// In a document with an external DTD (or a parameter entity reference in
// its internal subset) and not declared standalone, a reference to an
// entity that is not declared is well-formed: its data and attribute
// values keep the reference as text ("&nbsp;"). Elsewhere it is an error
// at the reference.
//
// Strictness. The check is lenient by default, as most XML readers are,
// in these cases, which SetStrict(true) makes errors with their line and
// column:
// - a document without a root element (empty, or only comments): lenient
//   reads an empty document, to which AddElement adds a root;
// - "--" inside a comment, or a comment ending in "--->";
// - bytes that are not UTF-8 in a UTF-8 document, and characters XML does
//   not allow (controls other than tab, LF and CR; U+FFFE, U+FFFF):
//   lenient keeps them as they are;
// - "]]>" in text: lenient reads it as text;
// - an XML declaration that is not at the very start: lenient reads it as
//   a processing instruction;
// - a second DOCTYPE: lenient reads the second as the first was read;
// - an attribute-list declaration that is not well-formed: lenient skips
//   it; a default value that refers to an entity in error (not declared
//   before it, external, holding '<', past the bound): lenient reads the
//   attribute without a default.
// Everything else that is not well-formed is an error in both modes.
//
// A document that is not well-formed keeps its text and the first error
// (message, line and column, from 1), and holds no elements: navigation
// finds nothing and edits are refused until a good document is set.
//
// Depth. Checking, navigation, edits and removal walk the index without
// recursion: depth is bounded by memory only.
//
// The document is not locked: one thread at a time.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <string>
#include <vector>

namespace qel
{

class MarkupText;

class QEL_API MarkupSTL
{
public:
    QEL_ALLOCATION_OPERATORS

    typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> String;

    struct Position
    {
        u32 parent;
        u32 main;
        u32 child;
    };

    // The bytes that entity references may expand to, over a document.
    static const u32 kMaxEntityExpansion = 16u << 20;

    MarkupSTL();
    explicit MarkupSTL(const char* document);
    MarkupSTL(const MarkupSTL& other);
    MarkupSTL& operator=(const MarkupSTL& other);
    ~MarkupSTL();

    // ---- the document
    // Takes the text (in any encoding above: the second form for UTF-16)
    // and checks it; true when it is well-formed. An empty text is a
    // well-formed empty document, to which AddElement adds a root (an error
    // in strict mode).
    bool SetDocument(const char* text);
    bool SetDocument(const char* text, u32 length);
    // The document as UTF-8, gathered after an edit.
    const String& GetDocument() const;
    // "UTF-8", "UTF-16LE", "UTF-16BE" or "ISO-8859-1": the encoding the
    // document came in, which Save writes.
    const char* GetEncoding() const;
    // Whether the next SetDocument or Load checks strictly (see above).
    void SetStrict(bool strict) { m_Strict = strict; }
    bool IsStrict() const { return m_Strict; }
    // Reads the file at the virtual path through the file layer; false when
    // it cannot be read (the error says so) or is not well-formed.
    bool Load(const char* path);
    // Writes the document, in the encoding it came in, to the virtual path
    // through a temporary beside it that replaces the file once written whole
    // (SafeOutputFileStream); false when it cannot be written, the previous
    // file then left whole.
    bool Save(const char* path) const;

    bool IsWellFormed() const { return m_Error.empty(); }
    // The first error's message ("" for a well-formed document), line and
    // column.
    const char* GetError() const { return m_Error.c_str(); }
    u32 GetErrorLine() const { return m_ErrorLine; }
    u32 GetErrorColumn() const { return m_ErrorColumn; }

    // ---- navigation
    // Back to the document level, before its root.
    void ResetPosition() { m_Position = Position{0, 0, 0}; }
    // Back to before the first element of the current level / the first
    // child of the main element.
    void ResetMainPosition() { m_Position.main = m_Position.child = 0; }
    void ResetChildPosition() { m_Position.child = 0; }
    // The next element of the current level, with the given tag name if
    // one is given; false (the position unchanged) when there is none.
    bool FindElement(const char* name = nullptr)
    {
        const u32 found = NextSibling(m_Position.main, m_Position.parent, name);
        if (found == 0)
            return false;
        m_Position.main = found;
        m_Position.child = 0;
        return true;
    }
    bool FindChildElement(const char* name = nullptr);
    // False when there is no main element / no parent to go back to.
    bool IntoElement()
    {
        if (m_Position.main == 0)
            return false;
        m_Position = Position{m_Position.main, m_Position.child, 0};
        return true;
    }
    bool OutOfElement()
    {
        if (m_Position.parent == 0)
            return false;
        m_Position =
            Position{m_Elements[m_Position.parent].parent, m_Position.parent, m_Position.main};
        return true;
    }
    Position GetPosition() const { return m_Position; }
    // A position taken from this document since its last SetDocument, Load
    // or removal.
    void SetPosition(const Position& position) { m_Position = position; }

    // ---- reading ("" when there is no such element or attribute)
    String GetTagName() const { return TagName(m_Position.main); }
    String GetChildTagName() const { return TagName(m_Position.child); }
    String GetData() const { return Data(m_Position.main); }
    String GetChildData() const { return Data(m_Position.child); }
    String GetAttribute(const char* name) const { return Attribute(m_Position.main, name); }
    String GetChildAttribute(const char* name) const { return Attribute(m_Position.child, name); }
    bool HasAttribute(const char* name) const;
    // The name of the main element's attribute `index` (from 0), "" past
    // the last one.
    String GetAttributeName(u32 index) const;
    // The number of elements in the document.
    u32 GetElementCount() const { return m_Count; }

    // ---- editing
    // Adds an element after the last one of the current level (Add) or
    // before the main element (Insert; at the start of the level when there
    // is none), with `data` as its text (escaped; null for none), and makes
    // it the main element. At the document level only a root can be added,
    // to an empty document.
    bool AddElement(const char* name, const char* data = nullptr);
    bool InsertElement(const char* name, const char* data = nullptr);
    // The same among the children of the main element; the new element
    // becomes the child position.
    bool AddChildElement(const char* name, const char* data = nullptr);
    bool InsertChildElement(const char* name, const char* data = nullptr);
    // Removes the main element (the child element) with all it holds; the
    // position goes to the element before it.
    bool RemoveElement();
    bool RemoveChildElement();
    // Replaces all the element holds, children included, by the escaped
    // text.
    bool SetData(const char* data) { return SetData(m_Position.main, data); }
    bool SetChildData(const char* data) { return SetData(m_Position.child, data); }
    // Sets an attribute, replacing its value or adding it at the end of the
    // start tag; false for a name that is no XML name.
    bool SetAttribute(const char* name, const char* value)
    {
        return SetAttribute(m_Position.main, name, value);
    }
    bool SetChildAttribute(const char* name, const char* value)
    {
        return SetAttribute(m_Position.child, name, value);
    }

private:
    // One element of the index. Its places are stored bytes of its own tags
    // (see MarkupText), which no edit elsewhere moves: start is its '<',
    // open the '>' that ends its start tag, close the '<' of its end tag and
    // end the end tag's '>'. An empty-element tag has open == close == end,
    // its "/>"'s '>'. Element 0 is the document. Links are indices, 0 for
    // none.
    struct Element
    {
        u32 start;
        u32 nameLength;
        u32 open;
        u32 close;
        u32 end;
        u32 parent;
        u32 firstChild;
        u32 lastChild;
        u32 nextSibling;
        u32 previousSibling;
    };
    typedef std::vector<Element, GeneralAllocator<Element>> Index;

    // A general entity of the internal subset: its replacement text, where
    // its declaration starts in the text and, once a reference has checked
    // it, its expanded length.
    struct Entity
    {
        String name;
        String text;
        u64 length;
        u32 state;
        u32 declared;
        bool external;
        bool markup;
        const char* error;
    };
    typedef std::vector<Entity, GeneralAllocator<Entity>> Entities;

    // An attribute that the internal subset declares for an element.
    struct Declaration
    {
        String element;
        String name;
        String value;   // the default, read
        u32 order;      // among the document's declarations
        bool tokenized; // of a type other than CDATA
        bool defaulted;
    };
    typedef std::vector<Declaration, GeneralAllocator<Declaration>> Declarations;

    class Checker;

    // Takes the bytes of a document, in any encoding read, and checks it.
    bool Take(String& bytes);
    // Checks the text, or takes `failure` at `offset` as its error.
    bool Parse(const char* failure = nullptr, u32 offset = 0);
    void SetError(const char* message, u32 offset);
    bool Matches(u32 element, const char* name) const;
    // The next element under `parent` after `after` (from the first for 0)
    // with the name, if one is given.
    u32 NextSibling(u32 after, u32 parent, const char* name) const
    {
        u32 at = after ? m_Elements[after].nextSibling : m_Elements[parent].firstChild;
        if (name != nullptr)
            at = NextNamed(at, name);
        return at;
    }
    u32 NextNamed(u32 at, const char* name) const;
    String TagName(u32 element) const;
    String Data(u32 element) const;
    // The attribute as the element's tag has it (false when it has not),
    // and as it reads, its declaration applied.
    bool SpecifiedAttribute(u32 element, const char* name, String& value) const;
    String Attribute(u32 element, const char* name) const;
    Entity* FindEntity(const char* name, std::size_t length) const;
    // The declarations of the element's attributes: [first, last).
    void DeclarationsOf(u32 element, const Declaration*& first, const Declaration*& last) const;
    const Declaration* FindDeclaration(u32 element, const char* name) const;
    // Drops leading and trailing spaces and makes each run of them one, as
    // a value of a type other than CDATA reads.
    static void CollapseSpaces(String& value);
    // Appends the decoded text of [from, to) to `out`: references expanded
    // (entities too), line ends read as LF and, for an attribute value, white
    // space as spaces; comments and processing instructions left out.
    void Decode(const char* from, const char* to, bool attribute, String& out) const;
    // A range of a start tag.
    struct Span
    {
        u32 start;
        u32 end;
    };
    // Reads the attribute of the start tag `tag` at `at` (white space before
    // it skipped) and moves past it; false at the end of the tag.
    static bool NextAttribute(const char* tag, u32& at, Span& name, Span& value);
    // The value of attribute `name` of `element`, between its quotes, in
    // its start tag.
    bool FindAttribute(u32 element, const char* name, Span& value) const;
    // Replaces an element's start tag by `tag`.
    void Retag(u32 element, const String& tag);
    // The piece of text that held an element's start tag after its last
    // edit is where the next edit of it or beside it looks first.
    void RecallPiece(u32 element) const;
    void KeepPiece(u32 element);
    void CompactIfWasteful();
    // Gives an empty-element tag an end tag, so that it can hold content.
    void Open(u32 element);
    // Adds an element under `parent` before `before` (0: at the end).
    u32 AddUnder(u32 parent, u32 before, const char* name, const char* data);
    void Unlink(u32 element);
    bool Remove(u32 element);
    bool SetData(u32 element, const char* data);
    bool SetAttribute(u32 element, const char* name, const char* value);
    u32 Depth(u32 element) const;
    // Writes the bytes to a new file at the virtual path.
    static bool WriteFile(const char* path, const String& bytes);

    MarkupText* m_Text;
    Index m_Elements;
    Entities m_Entities;         // by name
    Declarations m_Declarations; // by element name, each element's in the order declared
    bool m_KeepUnknownEntities = false;
    bool m_Strict = false;
    u32 m_Encoding = 0;
    u32 m_Count = 0;
    Position m_Position{0, 0, 0};
    String m_Error;
    String m_Scratch; // the text an edit puts in
    // The piece of each edited element's start tag, by element. Only edits
    // fill it, and the text checks a piece before it trusts one: one left
    // from an earlier document or edit only costs a search.
    std::vector<u32, GeneralAllocator<u32>> m_TagPieces;
    u32 m_ErrorLine = 0;
    u32 m_ErrorColumn = 0;
};

} // namespace qel
