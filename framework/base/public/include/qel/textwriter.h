// Serialized data as indented, readable text, the format tagged "qel/text".
// Write-only: no reader takes it back.
//
// Each field prints on its own line as its label, the marking character, a
// spacing character and the value; a block opened by Begin prints between
// the opening and closing characters, its fields indented by `tabulation`
// spacing characters per level. With the defaults,
//     Begin(); Identify("a"); Serialize(u32(5)); End();
// prints "{\n    a: 5\n}\n". A value outside any block prints bare, with no
// indentation or line end.
//
// Values: bool as "True" or "False", char as the character itself, the
// integers in decimal (signed char as a number, like unsigned char), float with 10 significant
// digits ("%.10g") and double with 20 ("%.20lg"), and the values that are no
// numbers as "inf", "-inf", "nan" and "-nan": the same text on every platform.
//
// Strings: a char array of stride 1 is text, printed on one line. It also
// cancels the block around it: a Begin/End pair around a string prints no
// braces (Identify("name"); Begin(); <string>; End() prints "name: text"),
// while a pair around other values prints a braced block. A string uses up
// its label as a single value does. Any other array prints one element per
// line.
//
// The pending opening character of a Begin prints with the first label or
// value inside the block, or with End for an empty block. An End with no
// block open at the outer level prints nothing: the depth never goes below
// 0.
#pragma once

#include <qel/export.h>
#include <qel/genericwriter.h>

namespace qel
{

class QEL_API TextWriter : public GenericWriter
{
public:
    explicit TextWriter(OutputStream* stream);

    using GenericWriter::Serialize;

    // Tabulation 4 and the five characters to ' ', ':', '{', '}' and '\n'.
    void SetDefaults();
    // Back to the outer level, with no label or opening pending.
    void Reset();
    void SetTabulation(u32 tabulation) { m_Tabulation = tabulation; }

    // Each sets one character and returns the one it replaces.
    char SetSpacingCharacter(char c) { return SetCharacter(m_Spacing, c); }
    char SetMarkingCharacter(char c) { return SetCharacter(m_Marking, c); }
    char SetOpeningCharacter(char c) { return SetCharacter(m_Opening, c); }
    char SetClosingCharacter(char c) { return SetCharacter(m_Closing, c); }
    // The line end.
    char SetSkipingCharacter(char c) { return SetCharacter(m_Skipping, c); }

    u32 Serialize(char* p, u32 count, u32 stride) override;

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

    // "qel/text".
    const char* GetUniqueHeader() const override;

protected:
    static char SetCharacter(char& field, char value)
    {
        const char previous = field;
        field = value;
        return previous;
    }

    // Depth times tabulation spacing characters.
    void Tabulate();
    // The opening character of a pending Begin, on a line of its own.
    void PrintOpening();
    void Translate(bool& v);
    void Translate(char& v);

private:
    // One value's text: the indentation or label spacing, `length` bytes at
    // `text` and the line end (only the text at the outer level).
    void PrintValue(const char* text, u32 length);
    // `format` of the one argument, through the library's formatter.
    template <class T>
    void PrintNumber(const char* format, T value);
    // A value the formatter wrote in a 48-character buffer, `length` being
    // its result: a text that did not fit is written as the whole buffer.
    void PrintFormatted(const char* text, int length);
    void Put(char c) { m_Stream->Write(static_cast<unsigned char>(c)); }

    u32 m_Depth = 0;
    u32 m_Tabulation = 4;
    bool m_ValuePending = false;
    bool m_OpeningPending = false;
    bool m_BlockOpen = false;
    char m_Spacing = ' ';
    char m_Marking = ':';
    char m_Opening = '{';
    char m_Closing = '}';
    char m_Skipping = '\n';
};

} // namespace qel
