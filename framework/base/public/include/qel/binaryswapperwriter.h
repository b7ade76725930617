// Binary output in big-endian order, the format tagged "qel/b0-b", for data
// made on one kind of machine for the other.
//
// The same encoding as BinaryWriter with every multi-byte value's bytes
// reversed; single bytes and bools are the same in both orders. Arrays of
// multi-byte values are written element by element.
//
// The database echo of a single double is the u64 operation on the
// double's bits in host order (1.0 shows as 4607182418800017408), not the
// double operation: a reader of the trace sees the exact bits.
#pragma once

#include <qel/binarywriter.h>
#include <qel/export.h>

namespace qel
{

class QEL_API BinarySwapperWriter : public BinaryWriter
{
public:
    BinarySwapperWriter(OutputStream* stream, Serializer* database) : BinaryWriter(stream, database)
    {
    }

    using BinaryWriter::Serialize;

    u32 Serialize(double* p, u32 count, u32 stride) override;
    u32 Serialize(float* p, u32 count, u32 stride) override;
    u32 Serialize(s64* p, u32 count, u32 stride) override;
    u32 Serialize(u64* p, u32 count, u32 stride) override;
    u32 Serialize(s32* p, u32 count, u32 stride) override;
    u32 Serialize(u32* p, u32 count, u32 stride) override;
    u32 Serialize(short* p, u32 count, u32 stride) override;
    u32 Serialize(unsigned short* p, u32 count, u32 stride) override;

    void Serialize(double& v) override;
    void Serialize(float& v) override;
    void Serialize(s64& v) override;
    void Serialize(u64& v) override;
    void Serialize(s32& v) override;
    void Serialize(u32& v) override;
    void Serialize(short& v) override;
    void Serialize(unsigned short& v) override;

    const char* GetUniqueHeader() const override;
    // "qel/b0-b".
    static const char* GetHeader();
};

} // namespace qel
