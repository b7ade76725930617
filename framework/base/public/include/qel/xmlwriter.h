// Serialized data as an XML document, the format tagged "qel/xml0", which
// XMLReader reads back: the one serialization routine of a class saves and
// loads readable XML as it does binary data.
//
// The document: a declaration, then the root element `qel` holding one
// element per value, four spaces of indentation per level and one element
// per line (LF):
//
//     <?xml version="1.0" encoding="UTF-8"?>
//     <qel format="qel/xml0">
//         <radius>2.5</radius>                      Identify("radius"); float
//         <position>                                Identify("position"); Begin()
//             <x>1</x>
//             <y>-2.25</y>
//         </position>                               End()
//         <name length="9">Lamp &amp; 2</name>      Identify("name"); a string
//         <ids count="3">1 2 3</ids>                Identify("ids"); a u32 array
//         <value>True</value>                       an unlabelled bool
//     </qel>
//
// Element names. Identify names the element of the value or block that
// follows. A label that is no XML name (empty, "2nd", "a b") becomes the
// attribute `name` of an element named "value" (a block: "block"), and an
// unlabelled value or block is a bare "value" or "block".
//
// Values are the element's text, in the text writer's forms: bool as
// "True" or "False", integers in decimal, a char as the character itself,
// float as "%.10g" and double as "%.20lg", "inf" and "-inf". Every float
// and double reads back bit for bit, NaNs too: the default quiet NaN is
// "nan" or "-nan", and any other NaN (a signalling one, one with a
// payload) carries its fraction field in hexadecimal, quiet bit included
// (23 bits for a float, 52 for a double): the double 7FF8000000000123 is
// "nan(0x8000000000123)", the float FF800001 "-nan(0x1)". The text is the
// same on every platform.
//
// Arrays: a char array is text, with the attribute `count`; any other
// array is its elements separated by single spaces, with `count`. A u32
// followed at once by a char array of exactly that many characters (a
// string, as WriteString writes one) is one element: the label, the
// attribute `length` and the text.
//
// Text is escaped ('<', '&', '>', CR; '"', tab and LF in attributes), so
// that "]]>" never appears. Bytes that XML cannot carry (invalid UTF-8,
// control characters other than tab, LF and CR, a lone char of 0x80 and
// above) are written instead as hexadecimal digits, two per byte, with the
// attribute encoding="hex".
//
// The declaration and the root are written before the first value; Finish
// closes the root, and the destructor calls it for a writer that has
// written anything. Unlike the binary writers, the XML writer echoes
// nothing to a database serializer: its output is readable already.
#pragma once

#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/genericwriter.h>

#include <string>

namespace qel
{

class QEL_API XMLWriter : public GenericWriter
{
public:
    explicit XMLWriter(OutputStream* stream);
    ~XMLWriter() override;

    using GenericWriter::Serialize;

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

    // "qel/xml0".
    const char* GetUniqueHeader() const override;

    // Closes the blocks left open and the root. A value written after it
    // starts a new document.
    void Finish();

private:
    typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> Text;

    struct Name
    {
        const char* text;
        u32 length;
    };

    void Put(const char* text, u32 length) { m_Stream->Write(text, length); }
    void Indent();
    void Put(const char* text);
    void Start();
    // The held length of a string written as a plain value.
    void Release();
    // Writes the start tag of the labelled element with `attributes`
    // (escaped already, each with its leading space) and uses the label up;
    // the name stays valid until the next Identify.
    Name Open(const char* anonymous, const char* attributes, bool block);
    void Close(Name element);
    void Value(const char* text, u32 length);
    template <class T>
    u32 Array(T* p, u32 count, u32 stride);
    void WriteText(const char* text, u32 length, const char* attributes);

    Text m_Label;
    bool m_Labelled = false;
    // Names of the open blocks, each ended by a zero.
    Text m_Open;
    bool m_Started = false;
    bool m_Holding = false;
    u32 m_Held = 0;
    Text m_HeldLabel;
    bool m_HeldLabelled = false;
    u32 m_Depth = 0;
};

} // namespace qel
