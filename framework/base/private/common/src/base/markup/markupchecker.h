// The markup document's well-formedness check: one pass over the text that
// builds the element index, reads the DOCTYPE's internal subset and checks
// every reference, without recursion on depth. Elements and references are
// read in markupcheck.cpp, the DOCTYPE in markupdoctype.cpp.
#pragma once

#include <qel/markupstl.h>

#include "base/markup/xmltext.h"

#include <cstring>

namespace qel
{

class MarkupSTL::Checker
{
public:
    Checker(MarkupSTL& document, const char* text, u32 size)
        : m_Document(document), m_Begin(text), m_At(text), m_End(text + size),
          m_Strict(document.m_Strict)
    {
    }

    bool Run();

    // The first place of `text` in [from, to), or null.
    static const char* Find(const char* from, const char* to, const char* text);
    // "what 'name' rest", the name cut at 64 bytes.
    static String Quoted(const char* what, const char* name, std::size_t length, const char* rest);

private:
    // The states of an entity: its replacement text is checked when a
    // reference first needs it.
    enum : u32
    {
        kUnchecked,
        kChecking,
        kGood,
        kBad,
    };

    // The start tags of the first 64 KB, scaled to the whole text with an
    // eighth more: the index of most documents then never grows (a growth
    // copies it and touches twice its pages), and the reserve's pages
    // that stay unused are never touched. The guess is bounded by one
    // element per 32 bytes, so that a head dense in tags before a long
    // text reserves no more than about the text's own size; denser
    // documents grow as needed.
    std::size_t EstimateElements() const;

    bool Fail(const char* message)
    {
        if (!m_Quiet)
            m_Document.SetError(message, u32(m_At - m_Begin));
        return false;
    }

    bool StartsWith(const char* text) const
    {
        const std::size_t length = std::strlen(text);
        return std::size_t(m_End - m_At) >= length && std::memcmp(m_At, text, length) == 0;
    }

    void SkipSpace()
    {
        while (m_At != m_End && XmlText::IsSpace(*m_At))
            ++m_At;
    }

    // ---- reading
    // White space that XML requires, then any more.
    bool NeedSpace(const char* what);

    bool SkipPast(const char* terminator, const char* what)
    {
        const char* found = Find(m_At + 2, m_End, terminator);
        if (found == nullptr)
        {
            MarkupSTL::String message(what);
            message += " is not closed";
            return Fail(message.c_str());
        }
        m_At = found + std::strlen(terminator);
        return true;
    }

    bool ReadComment()
    {
        // Its "-->" comes after its "<!--": "<!-->" is not closed.
        const char* close = Find(m_At + 4, m_End, "-->");
        if (close == nullptr)
            return Fail("a comment is not closed");
        if (m_Strict)
        {
            // The first "--" must be the one that closes it.
            const char* dashes = Find(m_At + 4, close + 2, "--");
            if (dashes != close)
            {
                m_At = dashes;
                return Fail("'--' inside a comment");
            }
        }
        m_At = close + 3;
        return true;
    }

    bool ReadInstruction()
    {
        if (m_Strict && m_At != m_Start && m_End - m_At >= 6 && (m_At[2] | 0x20) == 'x' &&
            (m_At[3] | 0x20) == 'm' && (m_At[4] | 0x20) == 'l' &&
            (XmlText::IsSpace(m_At[5]) || m_At[5] == '?'))
            return Fail("an XML declaration that is not at the start of the document");
        return SkipPast("?>", "a processing instruction");
    }

    // The text ends in a NUL, which is no name character.
    bool ReadName(const char*& name, u32& length)
    {
        name = m_At;
        if (!XmlText::IsNameStart(*m_At))
            return Fail(m_At == m_End ? "the document ends where a name was expected"
                                      : "a name was expected");
        ++m_At;
        while (XmlText::IsNameChar(*m_At))
            ++m_At;
        length = u32(m_At - name);
        return true;
    }

    bool ReadLiteral(const char*& value, const char*& close);

    // ---- the DOCTYPE (markupdoctype.cpp)
    // SYSTEM "literal" or PUBLIC "literal" "literal", when there is one.
    bool ReadExternalId(bool& found);
    bool ReadDoctype();
    bool ReadInternalSubset();
    // An element, attribute-list or notation declaration: to its '>',
    // past quoted literals.
    bool SkipDeclaration();
    bool ReadEntity();
    // The replacement text of a literal entity value: line ends read as
    // LF, character references replaced, entity references kept.
    bool ReadEntityValue(String& text);
    // Checks the replacement text of `entity` and the entities it refers
    // to, with a stack of its own: their expanded lengths, whether they
    // hold markup, and their errors.
    bool CheckEntity(Entity& entity);

    // ---- attribute-list declarations (markupdoctype.cpp)
    // An attribute an attribute-list declaration declares, until the
    // DOCTYPE ends: offsets in the text.
    struct Pending
    {
        u32 declaration; // its "<!ATTLIST"
        u32 element;
        u32 elementLength;
        u32 name;
        u32 nameLength;
        u32 value; // the default, between its quotes
        u32 valueEnd;
        bool tokenized;
        bool defaulted;
    };
    // A declaration that is not well-formed is an error in strict mode;
    // lenient mode skips it.
    bool ReadAttributeList();
    bool ReadAttributeDefinitions();
    // CDATA, a tokenized type, NOTATION and its names, or an enumeration.
    bool ReadAttributeType(bool& tokenized);
    // '(', names or name tokens separated by '|', ')'.
    bool ReadEnumeration(bool names);
    // A default value between quotes: no '<', and well-formed references.
    bool ReadDefaultValue(Pending& attribute);
    // The DOCTYPE's attributes join the document's declarations, their
    // defaults read.
    bool TakeDeclarations();
    // Reads a default value as a value in a tag is read: its references
    // checked and counted against the bound (their entities declared
    // before it), then decoded.
    bool ReadDefault(const Pending& attribute, String& value);

    // ---- elements (markupcheck.cpp, inline there: the hot path)
    // The element reader's fast paths scan with a table of character
    // classes and stop at the NUL that ends the text (it is a String's):
    // they take the common well-formed case, and leave anything else
    // (an error, a reference that is not predefined, the text's end) to
    // the exact readers, which start again where the fast path started.
    //
    // Checks the references in [from, to), whose '&' characters are the
    // only ones that need a look, and in strict mode that the text holds
    // no "]]>".
    inline bool CheckText(const char* from, const char* to, bool attribute);
    // The content at m_At up to its next '<' when it holds no reference
    // but predefined and character ones; null to read it exactly.
    inline const char* ScanText() const;
    // The attribute value after its opening quote at m_At: moves past
    // its closing quote when it holds no '<' and no reference but
    // predefined and character ones; false (m_At unmoved) to read it
    // exactly with ReadValue.
    inline bool ScanValue(char quote);
    inline bool ReadValue(char quote);
    // Whether the end tag at m_At closes `element`, read to its '>';
    // false (nothing moved) to read it exactly with ReadEndTag.
    inline bool ScanEndTag(u32 element);
    // The ';' of the entity reference "&name;" at `at`, which ends before
    // `to`; null when it is malformed.
    static const char* EntityReferenceEnd(const char* at, const char* to);
    // A reference to a declared entity at `at`.
    bool CheckEntityReference(const char* at, const char* to, bool attribute, std::size_t& used);
    inline bool ReadAttributes(const char* tag);
    // An attribute of the tag starting at `tag` named as the one at `name`
    // (which ends at m_At), found before it.
    inline const char* FindAttributeName(const char* tag, const char* name) const;
    // Reads the start tag at m_At into the index, under `parent`; `open`
    // is false for an empty-element tag.
    inline bool ReadStartTag(u32 parent, u32& index, bool& open);
    // Reads the end tag at m_At ("</"), which closes `element`.
    inline bool ReadEndTag(u32 element);
    // Reads the root element and all it holds. The open elements are the
    // chain of parents in the index, so depth costs no stack.
    inline bool ReadElement();

    MarkupSTL& m_Document;
    const char* m_Begin;
    const char* m_At;
    const char* m_End;
    const char* m_Start = nullptr; // after the byte order mark
    const bool m_Strict;
    bool m_ParameterReference = false;
    bool m_Standalone = false;
    // Whether declarations are used: not after a parameter entity
    // reference, which is not read, unless the document is standalone.
    bool m_Processing = true;
    // Whether a failure is kept from the document: lenient mode trying a
    // declaration it may skip.
    bool m_Quiet = false;
    std::vector<Pending, GeneralAllocator<Pending>> m_Pending;
    u32 m_Declared = 0; // attributes declared so far
    u64 m_Expanded = 0; // bytes the document's entity references expand to
};

} // namespace qel
