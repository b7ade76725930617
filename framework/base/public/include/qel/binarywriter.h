// Binary output in little-endian order, the format tagged "qel/b0-l".
//
// A value is its bytes, at its fixed width, with no names, type tags or
// padding: 1 byte for char, signed char, unsigned char and bool (0 or 1,
// whatever byte the bool held), 2 for short and unsigned short, 4 for s32,
// u32 and float (IEEE single), 8 for s64, u64 and double (IEEE double).
// Arrays are their elements one after another with no count: the calling
// routine writes the count first when the reader needs it. Identify, Begin
// and End write nothing.
//
// Every operation first echoes itself to the database while script output
// is on (see GenericSerializer). Arrays whose stride is the element's size
// go to the stream in one block; other strides move element by element.
// The stored order is the tag's, not the host's: a big-endian host would
// swap here.
#pragma once

#include <qel/export.h>
#include <qel/genericwriter.h>

namespace qel
{

class QEL_API BinaryWriter : public GenericWriter
{
public:
    BinaryWriter(OutputStream* stream, Serializer* database) : GenericWriter(stream, database) {}

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

    const char* GetUniqueHeader() const override;
    // "qel/b0-l".
    static const char* GetHeader();

    // Writes this writer's own tag (GetUniqueHeader), 8 bytes with no
    // terminating zero. Call it first, at the start of the stream.
    void WriteUniqueHeader();

protected:
    // The boolean forms, shared by both byte orders: one byte 0 or 1 per
    // value. The leading type tag is not used.
    void Write(u32 typeTag, bool& v);
    u32 Write(u32 typeTag, bool* p, u32 count, u32 stride);
};

} // namespace qel
