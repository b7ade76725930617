#include <qel/filearchive.h>

#include <qel/binarywriter.h>
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/filearchivedatabase.h>
#include <qel/genericreader.h>
#include <qel/inputfilestream.h>
#include <qel/interface.h>
#include <qel/resourcemanager.h>
#include <qel/safeoutputfilestream.h>
#include <qel/serializer.h>

#include "base/thread/thread_native.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace qel
{

namespace
{

const char kNotIdentified[] = "Resource isn't identified.";
const char kNameInUse[] = "This resource name is already in use!";
const char kTypeUnknown[] =
    "Type of resource unknown!\nMake sure the ClassDescriptor is registered.";

// The longest resource or class name read back; a longer one means the
// file is damaged.
const u32 kMaxName = 1024;

thread_local const char* tl_LoadingName = nullptr;

// A file provider that notes a read past the end of its file: the binary
// readers take a short read for zeros, so a file cut short would otherwise
// load as if nothing were missing.
class CheckedFileProvider : public InputFileProvider
{
public:
    explicit CheckedFileProvider(const char* path) : InputFileProvider(path) {}
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override
    {
        InputFileProvider::Request(position, block, current, end);
        if (current == end)
            m_PastEnd = true;
    }
    bool ReadDirect(u64 position, void* buffer, u32 count, u32& read) override
    {
        const bool direct = InputFileProvider::ReadDirect(position, buffer, count, read);
        if (direct && read < count)
            m_PastEnd = true;
        return direct;
    }
    bool IsPastEnd() const { return m_PastEnd; }

private:
    bool m_PastEnd = false;
};

class ResourceInput : public InputStream
{
public:
    explicit ResourceInput(const char* path) : InputStream(&m_Provider), m_Provider(path) {}
    bool IsPastEnd() const { return m_Provider.IsPastEnd(); }

private:
    CheckedFileProvider m_Provider;
};

[[noreturn]] void Throw(const char* what, const char* path)
{
    char reason[Exception::ReasonSize];
    std::snprintf(reason, sizeof reason, "%s%s", what, path);
    throw Exception(reason);
}

// A name written by WriteString, refused when longer than kMaxName.
FileArchive::Text ReadName(Serializer& serializer, const char* path)
{
    u32 length = 0;
    serializer.Serialize(length);
    if (length > kMaxName)
        Throw("Resource file damaged: ", path);
    char name[kMaxName + 1];
    serializer.Serialize(name, length, 1);
    return FileArchive::Text(name, length);
}

// Sets the name of the file being read for the scope of one read.
struct LoadingName
{
    explicit LoadingName(const char* name) : previous(tl_LoadingName) { tl_LoadingName = name; }
    ~LoadingName() { tl_LoadingName = previous; }
    const char* previous;
};

// Whether the calling thread has used up seven eighths of its stack. An
// unnamed resource is read inside the routine of the one that holds it, so
// nesting them takes stack that the archive cannot spare: past that point a
// load refuses to go deeper rather than overflow.
bool StackIsLow()
{
    thread_local std::uintptr_t low = 0;
    thread_local std::size_t size = 0;
    thread_local bool asked = false;
    if (!asked)
    {
        asked = true;
        if (!native::GetStackBounds(low, size))
            size = 0;
    }
    const std::uintptr_t frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    return size != 0 && frame - low < size / 8;
}

// An object whose memory could not be had (the allocator reported it) ends
// the load as the library's containers do when the process goes on.
template <class T>
T* Allocated(T* object)
{
    if (object == nullptr)
        throw std::bad_alloc();
    return object;
}

} // namespace

FileArchive::FileArchive(u32 version, const char* root, const char* extension)
    : m_Version(version), m_Root(root ? root : ""), m_Extension(extension ? extension : ".bin"),
      m_OutsidePass(true), m_LoggingMode(false), m_Log(nullptr), m_ScriptOutput(true),
      m_LoadDepth(0)
{
}

FileArchive::~FileArchive()
{
    delete m_Log;
}

const char* FileArchive::GetNamedPtr()
{
    return tl_LoadingName;
}

FileArchive::Text FileArchive::PathOf(const Text& name) const
{
    return m_Root + name + m_Extension;
}

// ---- names -------------------------------------------------------------------

void FileArchive::Bind(const Text& name, u32 index)
{
    m_Names[name] = index;
    m_Identities[index] = name;
}

const FileArchive::Text* FileArchive::NameOf(void* resource)
{
    u32 index;
    try
    {
        index = ResourceManager::GetResourceIndex(resource);
    }
    catch (const Exception&)
    {
        return nullptr; // not a resource the manager knows: unnamed
    }
    const auto found = m_Identities.find(index);
    return found == m_Identities.end() ? nullptr : &found->second;
}

void FileArchive::SetResourceName(void* resource, const char* name)
{
    const u32 index = ResourceManager::GetResourceIndex(resource);
    const auto identity = m_Identities.find(index);
    if (identity == m_Identities.end())
    {
        if (name != nullptr)
            Bind(name, index);
        return;
    }
    if (name == nullptr)
    {
        m_Names.erase(identity->second);
        m_Identities.erase(identity);
        return;
    }
    // A name not bound yet is bound to index 0 by the lookup, so renaming a
    // resource to a fresh name throws unless its index is 0.
    if (m_Names.emplace(name, 0).first->second != index)
        throw Exception(kNameInUse);
    m_Names.erase(identity->second);
    Bind(name, index);
}

void* FileArchive::GetResourceNamed(const char* name)
{
    const auto found = m_Names.find(name);
    return found == m_Names.end() ? nullptr : ResourceManager::GetResource(found->second);
}

const char* FileArchive::GetFilename(void* resource)
{
    const Text* name = NameOf(resource);
    return name ? name->c_str() : nullptr;
}

bool FileArchive::IsResourceAlreadyNamed(void* resource)
{
    return NameOf(resource) != nullptr;
}

void FileArchive::TakeOwnership(u32 index)
{
    const auto identity = m_Identities.find(index);
    if (identity == m_Identities.end())
        return;
    m_Names.erase(identity->second);
    m_Identities.erase(identity);
}

void FileArchive::GiveOwnership(u32) {}

// ---- saving ------------------------------------------------------------------

void FileArchive::BeginSave()
{
    m_OutsidePass = false;
    m_Saved.clear();
    delete m_Log; // the log of a pass that did not end is dropped
    m_Log = nullptr;
    if (m_LoggingMode)
        m_Log = Allocated(new SafeOutputFileStream((m_Root + "filearchive.log").c_str()));
}

void FileArchive::EndSave()
{
    m_OutsidePass = true;
    m_Saved.clear();
    std::unique_ptr<SafeOutputFileStream> log(m_Log);
    m_Log = nullptr;
    if (log)
        log->Commit(m_Durable);
}

void FileArchive::SetSaved(const char* name, bool saved)
{
    if (saved)
        m_Saved.insert(name);
    else
        m_Saved.erase(name);
}

void FileArchive::WriteToLog(const char* text)
{
    if (!m_LoggingMode || m_Log == nullptr)
        return;
    m_Log->Write(text, u32(std::strlen(text)));
    m_Log->Write("\r\n", 2);
}

void FileArchive::Save(ClassDescriptor& cls, void* resource)
{
    const Text* name = NameOf(resource);
    if (name == nullptr)
        throw Exception(kNotIdentified);
    SaveToFile(Text(*name), cls, resource);
}

void FileArchive::Save(Serializer& serializer, ClassDescriptor& cls, void* resource)
{
    const Text* name = NameOf(resource);
    serializer.Identify("Resource Identifier");
    if (name != nullptr)
    {
        const Text copy(*name); // the maps may change while it is saved
        WriteString(serializer, copy.c_str(), u32(copy.size()));
        SaveToFile(copy, cls, resource);
    }
    else
    {
        WriteString(serializer, "", 0);
        SaveToStream(serializer, cls, resource);
    }
}

void FileArchive::SaveToFile(const Text& name, ClassDescriptor& cls, void* resource)
{
    if (!m_Saved.insert(name).second)
        return; // written once per pass
    WriteToLog(name.c_str());
    if (m_Writing)
    {
        // Named inside the file being written: written after it, so that
        // nesting takes no stack and one file is open at a time.
        m_Unwritten.push_back({name, &cls, resource});
        return;
    }
    m_Writing = true;
    Unwritten next{name, &cls, resource};
    try
    {
        for (;;)
        {
            WriteFile(next.name, *next.cls, next.resource);
            if (m_Unwritten.empty())
                break;
            next = m_Unwritten.front();
            m_Unwritten.pop_front();
        }
    }
    catch (...)
    {
        // The files not written do not count as saved.
        m_Saved.erase(next.name);
        for (const Unwritten& unwritten : m_Unwritten)
            m_Saved.erase(unwritten.name);
        m_Unwritten.clear();
        m_Writing = false;
        throw;
    }
    m_Writing = false;
}

void FileArchive::WriteFile(const Text& name, ClassDescriptor& cls, void* resource)
{
    const Text path = PathOf(name);
    SafeOutputFileStream main(path.c_str());
    std::unique_ptr<SafeOutputFileStream> description;
    if (m_ScriptOutput)
        description.reset(Allocated(new SafeOutputFileStream((path + ".dat").c_str())));
    {
        FileArchiveDatabase database(description ? description.get() : &main);
        BinaryWriter writer(&main, &database);
        writer.EnableScriptOutput(m_ScriptOutput);
        writer.SetContext(m_Version, this);
        writer.WriteUniqueHeader();
        writer.Identify("File Version");
        u32 version = m_Version;
        writer.Serialize(version);
        SaveToStream(writer, cls, resource);
    }
    main.Commit(m_Durable);
    if (description)
        description->Commit(m_Durable);
}

void FileArchive::SaveToStream(Serializer& serializer, ClassDescriptor& cls, void* resource)
{
    serializer.Identify("Class Name");
    WriteString(serializer, cls.GetClassName());
    cls.SerializeInstance(*static_cast<Interface*>(resource), serializer);
}

// ---- loading -----------------------------------------------------------------

template <class Body>
void* FileArchive::Transaction(Body body)
{
    const bool outermost = m_LoadDepth++ == 0;
    try
    {
        void* resource = body();
        if (outermost)
        {
            // The named resources met on the way were made and wait for
            // their fields: one file at a time, in the order they were met,
            // however deep they are nested.
            while (!m_Pending.empty())
            {
                const Pending next = m_Pending.front();
                m_Pending.pop_front();
                Fill(next.name, next.object, next.cls);
            }
            m_Made.clear();
        }
        --m_LoadDepth;
        return resource;
    }
    catch (...)
    {
        --m_LoadDepth;
        if (outermost)
        {
            m_Pending.clear();
            // Newest first: each removal tells every archive to forget the
            // index, so the names go with the objects.
            for (auto made = m_Made.rbegin(); made != m_Made.rend(); ++made)
            {
                ResourceManager::Remove(made->resource);
                delete static_cast<Interface*>(made->resource);
            }
            m_Made.clear();
        }
        throw;
    }
}

template <class Read>
void FileArchive::ReadFile(const Text& name, Read read)
{
    const Text path = PathOf(name);
    ResourceInput stream(path.c_str());
    LoadingName loading(name.c_str());
    try
    {
        std::unique_ptr<Reader> reader(Allocated(GenericReader::Create(&stream, nullptr)));
        u32 version = 0;
        reader->Identify("File Version");
        reader->Serialize(version);
        reader->SetContext(version, this);
        reader->Identify("Class Name");
        const Text className = ReadName(*reader, path.c_str());
        const ClassDescriptor* cls = ClassDescriptor::Find(className.c_str());
        if (cls == nullptr)
            throw Exception(kTypeUnknown);
        read(*reader, *cls);
    }
    // Whatever went wrong past the end of the file was the cut.
    catch (const Exception&)
    {
        if (stream.IsPastEnd())
            Throw("Resource file cut short: ", path.c_str());
        throw;
    }
    catch (const UnknownFormat&)
    {
        if (stream.IsPastEnd())
            Throw("Resource file cut short: ", path.c_str());
        throw;
    }
    if (stream.IsPastEnd())
        Throw("Resource file cut short: ", path.c_str());
}

void FileArchive::Fill(const Text& name, Interface* object, const ClassDescriptor* cls)
{
    ReadFile(name,
             [&](Reader& reader, const ClassDescriptor& found)
             {
                 // The file was read for its class when the object was made.
                 if (cls != nullptr && cls != &found)
                     Throw("Resource file damaged: ", PathOf(name).c_str());
                 found.SerializeInstance(*object, reader);
             });
}

void* FileArchive::Load(const char* name)
{
    return Transaction(
        [&]
        {
            u32 index;
            return LoadFromFile(name ? name : "", index);
        });
}

void* FileArchive::Load(Serializer& serializer)
{
    return Transaction(
        [&]() -> void*
        {
            // The file being read, for the errors of its names.
            const Text path = tl_LoadingName ? PathOf(tl_LoadingName) : Text();
            serializer.Identify("Resource Identifier");
            const Text identifier = ReadName(serializer, path.c_str());
            u32 index;
            if (!identifier.empty())
                return LoadFromFile(identifier, index);
            if (StackIsLow())
                Throw("Resources nested too deeply for the stack: ", path.c_str());
            serializer.Identify("Class Name");
            const Text className = ReadName(serializer, path.c_str());
            const ClassDescriptor* cls = ClassDescriptor::Find(className.c_str());
            if (cls == nullptr)
                throw Exception(kTypeUnknown);
            Interface* object = Make(*cls, index, nullptr);
            cls->SerializeInstance(*object, serializer);
            return object;
        });
}

void* FileArchive::LoadFromFile(const Text& name, u32& index)
{
    const auto known = m_Names.find(name);
    if (known != m_Names.end())
    {
        index = known->second;
        return ResourceManager::GetResource(index);
    }
    Interface* object = nullptr;
    ReadFile(name,
             [&](Reader& reader, const ClassDescriptor& cls)
             {
                 object = Make(cls, index, &name);
                 // Met inside another resource's fields: filled once the
                 // outermost load gets to it, so that nesting takes no
                 // stack and one file is open at a time.
                 if (m_LoadDepth > 1)
                     m_Pending.push_back({name, object, &cls});
                 else
                     cls.SerializeInstance(*object, reader);
             });
    return object;
}

Interface* FileArchive::Make(const ClassDescriptor& cls, u32& index, const Text* name)
{
    // A class that cannot make an object (or whose memory ran out, which
    // was reported) is as unknown to the archive as one not registered.
    Interface* object = cls.CreateInstance();
    if (object == nullptr)
        throw Exception(kTypeUnknown);
    void* resource = object;
    // Listed first, so that a failed load (this one included) takes it back
    // out of the manager and deletes it.
    try
    {
        m_Made.push_back({resource, 0});
    }
    catch (...)
    {
        delete object;
        throw;
    }
    try
    {
        index = ResourceManager::Insert(resource);
    }
    catch (...)
    {
        m_Made.pop_back();
        delete object;
        throw;
    }
    m_Made.back().index = index;
    if (name != nullptr)
        Bind(*name, index); // before its fields: a file naming it finds it
    return object;
}

void FileArchive::Reload(void* resource)
{
    const Text* known = NameOf(resource);
    if (known == nullptr)
        throw Exception(kNotIdentified);
    const Text name(*known);
    Transaction(
        [&]
        {
            Fill(name, static_cast<Interface*>(resource), nullptr);
            return resource;
        });
}

} // namespace qel
