#include <qel/binaryswapperreader.h>

#include "base/serialization/binarycodec.h"

namespace qel
{

u32 BinarySwapperReader::Serialize(double* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(float* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(s64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(u64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(s32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(u32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

u32 BinarySwapperReader::Serialize(unsigned short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseBig>(*m_Stream, p, count, stride);
}

void BinarySwapperReader::Serialize(double& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(float& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(s64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(u64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(s32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(u32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

void BinarySwapperReader::Serialize(unsigned short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseBig>(*m_Stream, v);
}

} // namespace qel
