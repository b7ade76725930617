// Reads back what XMLWriter writes (the format is described in
// xmlwriter.h): the same serialization routine that saved an object loads
// it, every value bit for bit.
//
// The reader is a forward-only parser over the stream; it keeps only the
// element at hand. Each operation expects the element the writer would have
// written for it: Identify("radius") then a float reads <radius>...</radius>,
// Begin reads a start tag, End the matching end tag, a string the element
// with its `length` attribute (in one piece or in several char arrays in a
// row, as ReadString reads long texts). Documents edited by hand may carry
// what XML allows around the elements: a byte order mark, the declaration,
// comments, processing instructions, a DOCTYPE (skipped), white space, and
// in text CDATA sections, the five predefined entities and character
// references. Numbers may be surrounded by white space; text is taken as it
// stands. Documents are UTF-8, as XMLWriter writes them: the reader needs no
// other encoding (MarkupSTL reads UTF-16 and ISO-8859-1 documents).
//
// A document that does not hold what the routine asks for (another element,
// a missing one, a number that is not of the asked type or out of its
// range, elements left unread at an End, an ill-formed or cut document)
// throws XMLFormatError, naming the line and the element. The reader then
// stands somewhere in the document: start again with a new reader.
#pragma once

#include <qel/exception.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/genericreader.h>

#include <string>

namespace qel
{

class QEL_API XMLFormatError : public Exception
{
public:
    XMLFormatError(u32 line, const char* reason);
    // The document's line (from 1) where the reader stopped.
    u32 GetLine() const { return m_Line; }

private:
    u32 m_Line;
};

class QEL_API XMLReader : public GenericReader
{
public:
    // Reads at most `size` bytes from the stream's position: the length of
    // the document where the stream does not report its end by itself, as a
    // memory stream does not (pass its GetSize()). File streams report their
    // end: the default reads to it.
    explicit XMLReader(InputStream* stream, u64 size = ~u64(0));

    using GenericReader::Serialize;

    u32 Serialize(char* p, u32 count, u32 stride) override;
    u32 Serialize(bool* p, u32 count, u32 stride) override;
    u32 Serialize(double* p, u32 count, u32 stride) override;
    u32 Serialize(float* p, u32 count, u32 stride) override;
    u32 Serialize(s64* p, u32 count, u32 stride) override;
    u32 Serialize(u64* p, u32 count, u32 stride) override;
    u32 Serialize(s32* p, u32 count, u32 stride) override;
    u32 Serialize(u32* p, u32 count, u32 stride) override;
    u32 Serialize(short* p, u32 count, u32 stride) override;
    u32 Serialize(unsigned short* p, u32 count, u32 stride) override;
    u32 Serialize(signed char* p, u32 count, u32 stride) override;
    u32 Serialize(unsigned char* p, u32 count, u32 stride) override;

    void Serialize(char& v) override;
    void Serialize(bool& v) override;
    void Serialize(double& v) override;
    void Serialize(float& v) override;
    void Serialize(s64& v) override;
    void Serialize(u64& v) override;
    void Serialize(s32& v) override;
    void Serialize(u32& v) override;
    void Serialize(short& v) override;
    void Serialize(unsigned short& v) override;
    void Serialize(signed char& v) override;
    void Serialize(unsigned char& v) override;

    void Identify(const char* name) override;
    void Begin() override;
    void End() override;

    // Reads the end of the document: the blocks still open, the root's end
    // tag and nothing after it but comments and white space.
    void Finish();

    // The line (from 1) the reader has reached.
    u32 GetLine() const { return m_Line; }

private:
    typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> Text;

    // ---- characters
    // Makes `count` bytes available at m_At if the stream has them.
    bool Ensure(u32 count);
    char Peek() { return m_At != m_End || Ensure(1) ? *m_At : 0; }
    bool AtEnd() { return m_At == m_End && !Ensure(1); }
    char Next();
    bool Skip(const char* text);
    void SkipUntil(const char* text, const char* what);
    void SkipSpace();
    // Comments, processing instructions, DOCTYPE and white space.
    void SkipMisc();
    void ReadName(Text& name);
    void ReadAttributes();
    const char* Attribute(const char* name) const;
    // Decodes the reference at m_At (its '&') onto `out`.
    void ReadReference(Text& out);
    void Expect(char c, const char* context);
    [[noreturn]] void Fail(const char* format, ...);

    // ---- elements
    void Start();
    // The name the element of the next value or block must have.
    const char* ExpectedName(const char* anonymous) const;
    // Reads a start tag for the label; true when it was an empty-element
    // tag.
    bool ReadStartTag(const char* anonymous);
    // Reads the next value element whole: its text (decoded, hexadecimal
    // undone) into m_Text.
    void ReadValue();
    void ReadEndTag(const char* element);
    void DropString();
    // The name of the innermost open block ("qel" for none).
    const char* OpenBlock() const;
    template <class T>
    void Number(T& v);
    // The number in `text` (white space around it allowed) into `v`, or
    // Fail.
    template <class T>
    void Parse(const char* text, std::size_t length, T& v);
    template <class T>
    u32 Array(T* p, u32 count, u32 stride);

    unsigned char m_Buffer[8192];
    const char* m_At;
    const char* m_End;
    u64 m_Left; // bytes the reader may still take from the stream
    u32 m_Line = 1;
    bool m_Started = false;

    Text m_Label;
    bool m_Labelled = false;
    Text m_Element;    // the name of the element read last
    Text m_Attributes; // its attributes, names and values each ended by a zero
    Text m_Text;
    Text m_Open; // the names of the open blocks, each ended by a zero
    // What is left of a string's characters after its length was read.
    u32 m_StringAt = 0;
    bool m_InString = false;
};

} // namespace qel
