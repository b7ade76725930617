// Binary input of the little-endian format tagged "qel/b0-l" (see
// BinaryWriter for the encoding). Made by GenericReader::Create from the
// stream's tag, or directly on a stream past its tag.
//
// Every operation first echoes itself to the database while script output
// is on, before the value is read: the database sees the variable as it was
// before loading. A bool is read as a byte and is true when that byte is
// not 0; its echo is the unsigned char operation on a scratch byte holding
// 0 (an array's echo is the unsigned char array operation on the same
// memory). A bool object only ever receives 0 or 1.
//
// Reads past the end of the data are the stream's concern.
#pragma once

#include <qel/export.h>
#include <qel/genericreader.h>

namespace qel
{

class QEL_API BinaryReader : public GenericReader
{
public:
    BinaryReader(InputStream* stream, Serializer* database) : GenericReader(stream, database) {}

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

protected:
    // The boolean forms, shared by both byte orders. The leading type tag is
    // not used.
    void Read(u32 typeTag, bool& v);
    u32 Read(u32 typeTag, bool* p, u32 count, u32 stride);
};

} // namespace qel
