// An XML document held as one string, with a current position: element
// search, attribute access and editing in place.
//
// Loading checks that the text is well-formed and builds an index of its
// elements (offsets of each element's tags and content, and its parent,
// first child and next sibling); the string itself is never rebuilt. An
// edit splices the string and moves the offsets that follow, so navigation
// stays a walk over the index and the text stays exactly as it was loaded
// outside the edited part.
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
// Texts: data and attribute values come back decoded (the five predefined
// entities, character references, CDATA sections, line ends read as LF)
// and go in escaped. The data of an element is the text of an element
// without child elements; an element with children has none ("").
//
// A document that is not well-formed keeps its text and the first error
// (message, line and column, from 1), and holds no elements: navigation
// finds nothing and edits are refused until a good document is set.
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

    MarkupSTL();
    explicit MarkupSTL(const char* document);

    // ---- the document
    // Takes the text and checks it; true when it is well-formed. An empty
    // text is a well-formed empty document, to which AddElement adds a root.
    bool SetDocument(const char* text);
    bool SetDocument(const char* text, u32 length);
    const String& GetDocument() const { return m_Text; }
    // Reads the file at the virtual path through the file layer; false when
    // it cannot be read (the error says so) or is not well-formed.
    bool Load(const char* path);
    // Writes the document to the virtual path through a temporary beside it
    // that replaces the file once written whole (SafeOutputFileStream);
    // false when it cannot be written, the previous file then left whole.
    bool Save(const char* path) const;

    bool IsWellFormed() const { return m_Error.empty(); }
    // The first error's message ("" for a well-formed document), line and
    // column.
    const char* GetError() const { return m_Error.c_str(); }
    u32 GetErrorLine() const { return m_ErrorLine; }
    u32 GetErrorColumn() const { return m_ErrorColumn; }

    // ---- navigation
    // Back to the document level, before its root.
    void ResetPosition();
    // Back to before the first element of the current level / the first
    // child of the main element.
    void ResetMainPosition();
    void ResetChildPosition();
    // The next element of the current level, with the given tag name if
    // one is given; false (the position unchanged) when there is none.
    bool FindElement(const char* name = nullptr);
    bool FindChildElement(const char* name = nullptr);
    // False when there is no main element / no parent to go back to.
    bool IntoElement();
    bool OutOfElement();
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
    // One element of the index. Offsets into m_Text: start is its '<',
    // contentStart follows the start tag, contentEnd is the "</" of the end
    // tag and end follows it; an empty-element tag has contentStart ==
    // contentEnd == end. Element 0 is the document. Links are indices, 0
    // for none.
    struct Element
    {
        u32 start;
        u32 nameLength;
        u32 contentStart;
        u32 contentEnd;
        u32 end;
        u32 parent;
        u32 firstChild;
        u32 lastChild;
        u32 nextSibling;
        u32 previousSibling;
    };
    typedef std::vector<Element, GeneralAllocator<Element>> Index;

    class Checker;

    bool Parse();
    bool Matches(u32 element, const char* name) const;
    u32 NextSibling(u32 after, u32 parent, const char* name) const;
    String TagName(u32 element) const;
    String Data(u32 element) const;
    String Attribute(u32 element, const char* name) const;
    // A range of offsets into m_Text.
    struct Span
    {
        u32 start;
        u32 end;
    };
    // Reads the attribute of a start tag at `at` (white space before it
    // skipped) and moves past it; false at the end of the tag.
    bool NextAttribute(u32& at, Span& name, Span& value) const;
    // The value of attribute `name` of `element`, between its quotes.
    bool FindAttribute(u32 element, const char* name, Span& value) const;
    // Replaces m_Text[from, to) by `text` and moves the offsets after it.
    void Splice(u32 from, u32 to, const String& text);
    // Gives an empty-element tag an end tag, so that it can hold content.
    void Open(u32 element);
    // Adds an element under `parent` before `before` (0: at the end).
    u32 AddUnder(u32 parent, u32 before, const char* name, const char* data);
    void Unlink(u32 element);
    bool Remove(u32 element);
    bool SetData(u32 element, const char* data);
    bool SetAttribute(u32 element, const char* name, const char* value);
    u32 Depth(u32 element) const;

    String m_Text;
    Index m_Elements;
    u32 m_Count = 0;
    Position m_Position{0, 0, 0};
    String m_Error;
    u32 m_ErrorLine = 0;
    u32 m_ErrorColumn = 0;
};

} // namespace qel
