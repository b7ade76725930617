#include <qel/binaryswapperwriter.h>

#include "base/serialization/binarycodec.h"

#include <cstring>

namespace qel
{

u32 BinarySwapperWriter::Serialize(double* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(float* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(s64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(u64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(s32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(u32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperWriter::Serialize(unsigned short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

void BinarySwapperWriter::Serialize(double& v)
{
    // The trace shows the double's bits, as a u64.
    if (Serializer* mirror = Mirror())
    {
        u64 bits;
        std::memcpy(&bits, &v, sizeof bits);
        mirror->Serialize(bits);
    }
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(float& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(s64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(u64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(s32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(u32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperWriter::Serialize(unsigned short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseBig>(*m_Stream, v);
}

const char* BinarySwapperWriter::GetUniqueHeader() const
{
    return GetHeader();
}

const char* BinarySwapperWriter::GetHeader()
{
    return "qel/b0-b";
}

} // namespace qel
