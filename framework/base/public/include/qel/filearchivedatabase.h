// The readable description of a binary save: a writer that prints each
// field's name, type and value as indented text. The file archive hands one
// to the binary writer of every resource file it saves, so that name.bin
// has name.bin.dat beside it. It writes only; nothing reads it back.
//
// Lines end in a line feed; each level indents by two spaces.
//   Identify(name)   the indentation, the name, ": "
//   a value          "type(value)" and a line feed; a second value after one
//                    name starts its own line, indented
//   Begin()          "{" and a line feed (indented when a value was written
//                    since the last name); one level deeper
//   End()            one level up; the indentation, "}" and a line feed
// End at the outer level goes to level -1, where indentation writes nothing.
// Begin and End leave the "value written" state as they find it.
//
// Type words and values: bool "True"/"False", char the character itself,
// u8 s8 u16 s16 u32 s32 u64 s64 in decimal, f32 with 10 significant digits
// (0.1f is f32(0.1000000015)), f64 with 20. A char array of stride 1 is a
// string: char[](text), the characters up to the count or the first zero,
// unquoted and unescaped. Other char arrays, and every other array, print
// element by element. Numbers print the same on every platform, infinities
// and NaNs as "inf", "-inf", "nan" and "-nan" (f64(-nan)).
//
// A string written by WriteString shows as its length, then its characters:
//   File Version: u32(3)
//   Class Name: u32(4)
//   char[](Lamp)
//   Light: {
//     Power: f32(60)
//   }
#pragma once

#include <qel/export.h>
#include <qel/writer.h>

namespace qel
{

class OutputStream;

class QEL_API FileArchiveDatabase : public Writer
{
public:
    // `output` is not owned and must outlive the database.
    explicit FileArchiveDatabase(OutputStream* output);

    using Writer::Serialize;

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

    s32 GetLevel() const { return m_Level; }

private:
    void Indent();
    // "type(" text ")\n", on a line of its own after an earlier value.
    void Value(const char* type, const char* text, u32 length);
    template <class T>
    void Number(const char* type, const char* format, T value);
    // A value as the formatter wrote it in a 48-character buffer, `length`
    // being its result.
    void Formatted(const char* type, const char* text, int length);
    void Put(const char* text, u32 length);

    OutputStream* m_Output;
    s32 m_Level;
    bool m_ValueWritten;
};

} // namespace qel
