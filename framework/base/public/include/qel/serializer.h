// The one interface through which every persistent object is saved and
// loaded.
//
// A class has a single serialization routine that calls Serialize on each of
// its fields; handed a writer it saves them, handed a reader it loads them,
// and it asks IsReading()/IsWriting() only where the two directions differ.
// Identify names the value or block that follows (binary formats store
// nothing for it; text formats print it); Begin and End bracket a compound
// value.
//
// Value types. The twelve types below are the whole interface, in this slot
// order, both as single values and as arrays; every stream stores them at
// their fixed width on every host: char, bool (1 byte, 0 or 1), double,
// float, s64, u64, s32 and u32 (4 bytes everywhere), short, unsigned short,
// signed char, unsigned char. The host's other integer types (`long` and
// `unsigned long` on 64-bit Linux, `int` and `unsigned int` where u32 is
// `unsigned long`) have non-virtual overloads that go through the s32 and
// u32 slots, so that a `long` is 4 bytes in every stream on every host:
// read back, it is sign-extended (`unsigned long` zero-extended). Written,
// a value that does not fit in 32 bits is reported as a warning in the
// category GetErrorCategory() ("Serializer"), naming the field by the label
// of the last Identify when the writer keeps it, and its low 32 bits are
// written; the caller's variable is left as it is.
//
// Labels. The library's writers keep the text given to Identify, not a
// copy, to name the field in that report: it must live until the value it
// labels has been written (a literal always does).
//
// Arrays. Serialize(p, count, stride) moves `count` elements, the element i
// lying `i * stride` bytes after `p`, so that one field of an array of
// structures can be serialized in one call; the bytes between the elements
// are neither read nor written. The result is the element count. The base
// form calls the single-value form once per element through a local copy,
// so the elements need not be aligned; back-ends move whole arrays at once
// where the stride allows.
//
// Strings. There is no string slot: a string is its length as a u32 (the
// terminating zero not counted) followed by that many chars as one array of
// stride 1, with nothing around them. WriteString and ReadString below are
// the library's one implementation of that form.
//
// Whole objects. Load() and Save() hand the serializer to its archive, which
// writes the class name and the object's fields and finds the class again
// when loading. The archive must have been set (SetArchive, SetContext).
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

#include <cstring>
#include <type_traits>

namespace qel
{

class Archive;
class ClassDescriptor;

class QEL_API Serializer
{
public:
    QEL_ALLOCATION_OPERATORS

    Serializer() = default;
    Serializer(const Serializer&) = default;
    Serializer& operator=(const Serializer&) = default;
    virtual ~Serializer();

    virtual bool IsReading() const = 0;
    virtual bool IsWriting() const = 0;

    virtual u32 Serialize(char* p, u32 count, u32 stride);
    virtual u32 Serialize(bool* p, u32 count, u32 stride);
    virtual u32 Serialize(double* p, u32 count, u32 stride);
    virtual u32 Serialize(float* p, u32 count, u32 stride);
    virtual u32 Serialize(s64* p, u32 count, u32 stride);
    virtual u32 Serialize(u64* p, u32 count, u32 stride);
    virtual u32 Serialize(s32* p, u32 count, u32 stride);
    virtual u32 Serialize(u32* p, u32 count, u32 stride);
    virtual u32 Serialize(short* p, u32 count, u32 stride);
    virtual u32 Serialize(unsigned short* p, u32 count, u32 stride);
    virtual u32 Serialize(signed char* p, u32 count, u32 stride);
    virtual u32 Serialize(unsigned char* p, u32 count, u32 stride);

    virtual void Serialize(char& v) = 0;
    virtual void Serialize(bool& v) = 0;
    virtual void Serialize(double& v) = 0;
    virtual void Serialize(float& v) = 0;
    virtual void Serialize(s64& v) = 0;
    virtual void Serialize(u64& v) = 0;
    virtual void Serialize(s32& v) = 0;
    virtual void Serialize(u32& v) = 0;
    virtual void Serialize(short& v) = 0;
    virtual void Serialize(unsigned short& v) = 0;
    virtual void Serialize(signed char& v) = 0;
    virtual void Serialize(unsigned char& v) = 0;

    // Labels the value or block that follows.
    virtual void Identify(const char* name) = 0;
    // Open and close a nested block (a compound value).
    virtual void Begin() = 0;
    virtual void End() = 0;

    // The host's integer types outside the twelve, through the 32-bit slots
    // (see the top of this file).
    typedef std::conditional_t<std::is_same<s32, int>::value, long, int> HostSigned;
    typedef std::conditional_t<std::is_same<u32, unsigned int>::value, unsigned long, unsigned int>
        HostUnsigned;
    void Serialize(HostSigned& v) { SerializeHost<s32>(v); }
    void Serialize(HostUnsigned& v) { SerializeHost<u32>(v); }
    u32 Serialize(HostSigned* p, u32 count, u32 stride) { return SerializeEach(p, count, stride); }
    u32 Serialize(HostUnsigned* p, u32 count, u32 stride)
    {
        return SerializeEach(p, count, stride);
    }

    // The format version of the data; 0 at construction.
    u32 GetVersion() const { return m_Version; }
    void SetVersion(u32 version) { m_Version = version; }
    Archive* GetArchive() const { return m_Archive; }
    void SetArchive(Archive* archive) { m_Archive = archive; }
    void SetContext(u32 version, Archive* archive)
    {
        m_Version = version;
        m_Archive = archive;
    }

    // One whole object, through the archive: read and returned, or written
    // with its class name.
    void* Load();
    void Save(ClassDescriptor& cls, void* object);

    // When on, the binary back-ends echo every operation to their database
    // serializer. Constructors leave it as it is: set it before the first
    // operation.
    void EnableScriptOutput(bool enable) { m_ScriptOutput = enable; }
    bool IsScriptOutputEnabled() const { return m_ScriptOutput; }

    // "Serializer", under "Base": the category of the serializers' reports,
    // registered on first use.
    static u32 GetErrorCategory();

protected:
    // The writers' Identify keeps the label here for the reports.
    void SetLabel(const char* name) { m_Label = name; }

    // The base element loop of the array forms: each element is copied to a
    // local, handed to the single-value form and, when reading, copied back.
    template <class T>
    u32 SerializeEach(T* p, u32 count, u32 stride);

private:
    template <class T>
    static T LoadElement(const unsigned char* at)
    {
        T value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }

    template <class Fixed, class T>
    void SerializeHost(T& v)
    {
        Fixed fixed = static_cast<Fixed>(v);
        const bool fits = static_cast<T>(fixed) == v;
        if (!fits && IsWriting())
            ReportCut(static_cast<std::conditional_t<std::is_signed<T>::value, s64, u64>>(v));
        Serialize(fixed);
        if (fits || IsReading())
            v = static_cast<T>(fixed);
    }
    // A host integer too wide for its 32-bit slot, written cut.
    void ReportCut(s64 value) const;
    void ReportCut(u64 value) const;

    u32 m_Version = 0;
    Archive* m_Archive = nullptr;
    bool m_ScriptOutput = false;
    const char* m_Label = nullptr;
};

// A bool in memory may hold any byte: only 0 is false.
template <>
inline bool Serializer::LoadElement<bool>(const unsigned char* at)
{
    return *at != 0;
}

template <class T>
u32 Serializer::SerializeEach(T* p, u32 count, u32 stride)
{
    unsigned char* at = reinterpret_cast<unsigned char*>(p);
    const bool reading = count != 0 && IsReading();
    for (u32 i = 0; i < count; ++i, at += stride)
    {
        T value = LoadElement<T>(at);
        Serialize(value);
        if (reading)
            std::memcpy(at, &value, sizeof value);
    }
    return count;
}

// Writes `text` (null is the empty string) as its u32 length and its
// characters; returns the length.
QEL_API u32 WriteString(Serializer& serializer, const char* text);
// The same for `length` characters at `text`, zeros included.
QEL_API u32 WriteString(Serializer& serializer, const char* text, u32 length);
// Reads a string written by WriteString into `buffer`, keeping at most
// `capacity - 1` characters and always terminating it (when `capacity` is
// not 0); the characters that do not fit are read and dropped, so the
// stream stays in step. A reader whose data ends early stops there: the
// text is what was read. Returns the stored length.
QEL_API u32 ReadString(Serializer& serializer, char* buffer, u32 capacity);

} // namespace qel

// Thrown by GenericReader::Create when a stream begins with no header it
// knows. It stands outside the namespace; qel::UnknownFormat names it too.
class QEL_API UnknownFormat
{
public:
    UnknownFormat() noexcept;
};

namespace qel
{
using ::UnknownFormat;
}
