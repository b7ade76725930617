#include <qel/archive.h>
#include <qel/binaryreader.h>
#include <qel/binaryswapperreader.h>
#include <qel/binaryswapperwriter.h>
#include <qel/errormanager.h>
#include <qel/reader.h>
#include <qel/report.h>
#include <qel/writer.h>

#include "base/serialization/textformat.h"

#include <cstring>

UnknownFormat::UnknownFormat() noexcept = default;

namespace qel
{

Serializer::~Serializer() = default;

u32 Serializer::GetErrorCategory()
{
    static const u32 category = []
    {
        ErrorManager& manager = ErrorManager::GetSingletonInstance();
        ScopedLock<CriticalSection> lock(manager.GetMutex());
        return manager.RegisterCategory(ErrorManager::BaseCategory, "Serializer");
    }();
    return category;
}

namespace
{

void ReportCutValue(const char* label, const char* value)
{
    if (label != nullptr)
        QEL_WARNING(Serializer::GetErrorCategory(),
                    "The value %s of the field \"%s\" does not fit in 32 bits: its low 32 bits "
                    "are written.",
                    value, label);
    else
        QEL_WARNING(Serializer::GetErrorCategory(),
                    "The value %s does not fit in 32 bits: its low 32 bits are written.", value);
}

} // namespace

void Serializer::ReportCut(s64 value) const
{
    char text[32];
    TextFormat::Print(text, sizeof text, "%I64i", static_cast<long long>(value));
    ReportCutValue(m_Label, text);
}

void Serializer::ReportCut(u64 value) const
{
    char text[32];
    TextFormat::Print(text, sizeof text, "%I64u", static_cast<unsigned long long>(value));
    ReportCutValue(m_Label, text);
}

u32 Serializer::Serialize(char* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(bool* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(double* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(float* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(s64* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(u64* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(s32* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(u32* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(short* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(unsigned short* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(signed char* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

u32 Serializer::Serialize(unsigned char* p, u32 count, u32 stride)
{
    return SerializeEach(p, count, stride);
}

void* Serializer::Load()
{
    return m_Archive->Load(*this);
}

void Serializer::Save(ClassDescriptor& cls, void* object)
{
    m_Archive->Save(*this, cls, object);
}

bool Reader::IsReading() const
{
    return true;
}

bool Reader::IsWriting() const
{
    return false;
}

bool Writer::IsReading() const
{
    return false;
}

bool Writer::IsWriting() const
{
    return true;
}

Reader* GenericReader::Create(InputStream* stream, Serializer* database)
{
    // Zeroed, so that a stream shorter than a header never matches one.
    unsigned char header[8] = {};
    stream->Read(header, 8, 1);
    if (std::memcmp(header, BinaryWriter::GetHeader(), 8) == 0)
        return new BinaryReader(stream, database);
    if (std::memcmp(header, BinarySwapperWriter::GetHeader(), 8) == 0)
        return new BinarySwapperReader(stream, database);
    throw UnknownFormat();
}

u32 WriteString(Serializer& serializer, const char* text)
{
    return WriteString(serializer, text, text ? static_cast<u32>(std::strlen(text)) : 0);
}

u32 WriteString(Serializer& serializer, const char* text, u32 length)
{
    serializer.Serialize(length);
    serializer.Serialize(const_cast<char*>(text ? text : ""), length, 1);
    return length;
}

u32 ReadString(Serializer& serializer, char* buffer, u32 capacity)
{
    u32 length = 0;
    serializer.Serialize(length);
    u32 kept = capacity == 0 ? 0 : (length < capacity ? length : capacity - 1);
    const u32 read = serializer.Serialize(buffer, kept, 1);
    if (read < kept)
        kept = read; // the data ended: only what was read is the text
    if (capacity != 0)
        buffer[kept] = 0;
    // A reader that reaches the end of its data reads fewer characters than
    // asked: a length that lies then stops here, not after 4 G reads.
    char dropped[256];
    for (u32 left = length - kept; left > 0;)
    {
        const u32 chunk = left < sizeof dropped ? left : u32(sizeof dropped);
        if (serializer.Serialize(dropped, chunk, 1) < chunk)
            break;
        left -= chunk;
    }
    return kept;
}

} // namespace qel
