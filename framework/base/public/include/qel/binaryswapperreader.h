// Binary input of the big-endian format tagged "qel/b0-b" (see
// BinarySwapperWriter): the values are read at their width and their bytes
// reversed in place. Single bytes and bools read as in BinaryReader.
#pragma once

#include <qel/binaryreader.h>
#include <qel/export.h>

namespace qel
{

class QEL_API BinarySwapperReader : public BinaryReader
{
public:
    BinarySwapperReader(InputStream* stream, Serializer* database) : BinaryReader(stream, database)
    {
    }

    using BinaryReader::Serialize;

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
};

} // namespace qel
