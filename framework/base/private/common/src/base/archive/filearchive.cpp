#include <qel/filearchive.h>

#include <qel/binarywriter.h>
#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/filearchivedatabase.h>
#include <qel/genericreader.h>
#include <qel/inputfilestream.h>
#include <qel/interface.h>
#include <qel/outputfilestream.h>
#include <qel/resourcemanager.h>
#include <qel/serializer.h>

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

// Sets the name of the file being loaded for the scope of one load.
struct LoadingName
{
    explicit LoadingName(const char* name) { tl_LoadingName = name; }
    ~LoadingName() { tl_LoadingName = nullptr; }
};

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
    if (m_LoggingMode)
    {
        delete m_Log;
        m_Log = nullptr;
        m_Log = new OutputFileStream((m_Root + "filearchive.log").c_str());
    }
}

void FileArchive::EndSave()
{
    m_OutsidePass = true;
    m_Saved.clear();
    delete m_Log;
    m_Log = nullptr;
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

    const Text path = PathOf(name);
    OutputFileStream main(path.c_str());
    std::unique_ptr<OutputFileStream> description;
    if (m_ScriptOutput)
        description.reset(new OutputFileStream((path + ".dat").c_str()));
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
        --m_LoadDepth;
        if (outermost)
            m_Made.clear();
        return resource;
    }
    catch (...)
    {
        --m_LoadDepth;
        if (outermost)
        {
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
            serializer.Identify("Resource Identifier");
            const Text identifier = ReadName(serializer, tl_LoadingName ? tl_LoadingName : "");
            u32 index;
            if (!identifier.empty())
                return LoadFromFile(identifier, index);
            return LoadFromStream(serializer, index, nullptr);
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
    const Text path = PathOf(name);
    ResourceInput stream(path.c_str());
    std::unique_ptr<Reader> reader(Allocated(GenericReader::Create(&stream, nullptr)));
    u32 version = 0;
    reader->Identify("File Version");
    reader->Serialize(version);
    reader->SetContext(version, this);
    void* resource;
    try
    {
        LoadingName loading(name.c_str());
        resource = LoadFromStream(*reader, index, &name);
    }
    catch (const Exception&)
    {
        // Whatever went wrong past the end of the file was the cut.
        if (stream.IsPastEnd())
            Throw("Resource file cut short: ", path.c_str());
        throw;
    }
    if (stream.IsPastEnd())
        Throw("Resource file cut short: ", path.c_str());
    return resource;
}

void* FileArchive::LoadFromStream(Serializer& serializer, u32& index, const Text* name)
{
    serializer.Identify("Class Name");
    const Text className = ReadName(serializer, tl_LoadingName ? tl_LoadingName : "");
    const ClassDescriptor* cls = ClassDescriptor::Find(className.c_str());
    if (cls == nullptr)
        throw Exception(kTypeUnknown);
    Interface* object = Allocated(cls->CreateInstance());
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
    cls->SerializeInstance(*object, serializer);
    return resource;
}

void FileArchive::Reload(void* resource)
{
    const Text* known = NameOf(resource);
    if (known == nullptr)
        throw Exception(kNotIdentified);
    const Text name(*known);
    const Text path = PathOf(name);
    ResourceInput stream(path.c_str());
    std::unique_ptr<Reader> reader(Allocated(GenericReader::Create(&stream, nullptr)));
    u32 version = 0;
    reader->Identify("File Version");
    reader->Serialize(version);
    reader->SetContext(version, this);
    LoadingName loading(name.c_str());
    reader->Identify("Class Name");
    const Text className = ReadName(*reader, path.c_str());
    const ClassDescriptor* cls = ClassDescriptor::Find(className.c_str());
    if (cls == nullptr)
        throw Exception(kTypeUnknown);
    Transaction(
        [&]
        {
            cls->SerializeInstance(*static_cast<Interface*>(resource), *reader);
            return resource;
        });
    if (stream.IsPastEnd())
        Throw("Resource file cut short: ", path.c_str());
}

} // namespace qel
