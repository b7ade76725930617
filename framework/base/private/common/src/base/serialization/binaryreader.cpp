#include <qel/binaryreader.h>

#include "base/serialization/binarycodec.h"

namespace qel
{

u32 BinaryReader::Serialize(char* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(bool* p, u32 count, u32 stride)
{
    return Read(0, p, count, stride);
}

u32 BinaryReader::Serialize(double* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(float* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(s64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(u64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(s32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(u32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(unsigned short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(signed char* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryReader::Serialize(unsigned char* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::GetArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

void BinaryReader::Serialize(char& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(bool& v)
{
    Read(0, v);
}

void BinaryReader::Serialize(double& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(float& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(s64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(u64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(s32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(u32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(unsigned short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(signed char& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Serialize(unsigned char& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Get<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryReader::Identify(const char* name)
{
    if (Serializer* mirror = Mirror())
        mirror->Identify(name);
}

void BinaryReader::Begin()
{
    if (Serializer* mirror = Mirror())
        mirror->Begin();
}

void BinaryReader::End()
{
    if (Serializer* mirror = Mirror())
        mirror->End();
}

void BinaryReader::Read(u32, bool& v)
{
    if (Serializer* mirror = Mirror())
    {
        unsigned char scratch = 0;
        mirror->Serialize(scratch);
    }
    unsigned char byte;
    m_Stream->Read(byte);
    v = byte != 0;
}

u32 BinaryReader::Read(u32, bool* p, u32 count, u32 stride)
{
    unsigned char* bytes = reinterpret_cast<unsigned char*>(p);
    if (Serializer* mirror = Mirror())
        mirror->Serialize(bytes, count, stride);
    // Bytes first, then each made 0 or 1, so no bool ever holds another byte.
    BinaryCodec::GetArray<false>(*m_Stream, bytes, count, stride);
    unsigned char* at = bytes;
    for (u32 i = 0; i < count; ++i, at += stride)
        *at = *at != 0;
    return count;
}

} // namespace qel
