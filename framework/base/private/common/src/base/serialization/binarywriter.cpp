#include <qel/binarywriter.h>

#include "base/serialization/binarycodec.h"

#include <cstring>

namespace qel
{

u32 BinaryWriter::Serialize(char* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(bool* p, u32 count, u32 stride)
{
    return Write(0, p, count, stride);
}

u32 BinaryWriter::Serialize(double* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(float* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(s64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(u64* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(s32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(u32* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(unsigned short* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(signed char* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

u32 BinaryWriter::Serialize(unsigned char* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    return BinaryCodec::PutArray<BinaryCodec::ReverseLittle>(*m_Stream, p, count, stride);
}

void BinaryWriter::Serialize(char& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(bool& v)
{
    Write(0, v);
}

void BinaryWriter::Serialize(double& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(float& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(s64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(u64& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(s32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(u32& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(unsigned short& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(signed char& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Serialize(unsigned char& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    BinaryCodec::Put<BinaryCodec::ReverseLittle>(*m_Stream, v);
}

void BinaryWriter::Identify(const char* name)
{
    SetLabel(name);
    if (Serializer* mirror = Mirror())
        mirror->Identify(name);
}

void BinaryWriter::Begin()
{
    if (Serializer* mirror = Mirror())
        mirror->Begin();
}

void BinaryWriter::End()
{
    if (Serializer* mirror = Mirror())
        mirror->End();
}

const char* BinaryWriter::GetUniqueHeader() const
{
    return GetHeader();
}

const char* BinaryWriter::GetHeader()
{
    return "qel/b0-l";
}

void BinaryWriter::WriteUniqueHeader()
{
    m_Stream->Write(GetUniqueHeader(), 8);
}

void BinaryWriter::Write(u32, bool& v)
{
    if (Serializer* mirror = Mirror())
        BinaryCodec::Echo(*mirror, v);
    // The byte, not the bool: a bool object may hold any byte.
    unsigned char byte;
    std::memcpy(&byte, &v, 1);
    m_Stream->Write(static_cast<unsigned char>(byte != 0));
}

u32 BinaryWriter::Write(u32, bool* p, u32 count, u32 stride)
{
    if (Serializer* mirror = Mirror())
        mirror->Serialize(p, count, stride);
    const unsigned char* at = reinterpret_cast<const unsigned char*>(p);
    for (u32 i = 0; i < count; ++i, at += stride)
        m_Stream->Write(static_cast<unsigned char>(*at != 0));
    return count;
}

} // namespace qel
