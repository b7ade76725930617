// Resources stored one per file.
//
// A resource is an object whose class has a ClassDescriptor registered in
// the class repository, known to the ResourceManager by an index. It travels
// as a void* made from its Interface* (never from a pointer to a derived
// class). Insert your own objects into the ResourceManager before naming
// and saving them; loaded objects are inserted by the archive.
//
// A named resource is saved to root + name + extension through a
// BinaryWriter:
//   the writer's 8-byte header tag
//   "File Version"   u32, the archive's version
//   "Class Name"     string, the descriptor's name
//   the resource's fields, as its descriptor's SerializeInstance writes them
// A resource met inside another's fields (Serializer::Save) is written as
// the field "Resource Identifier": its name, and its own file is saved too;
// or, when it has no name, the empty string followed by its "Class Name" and
// fields inline. Loading follows the names, loading each file once: Load of
// a name already known returns its object without reading (Reload rereads).
//
// With script output on (the default), name + extension + ".dat" beside
// each file describes the same fields as text (FileArchiveDatabase); off,
// no ".dat" is written. In a save pass (BeginSave to EndSave) each file is
// written at most once however often it is referred to; outside a pass a
// name once saved is skipped until SetSaved(name, false) or the next pass.
// A file whose save failed does not count as saved. With logging on, each
// file the pass sets out to write adds its name and CR LF to the log, root
// + "filearchive.log".
//
// Saving never destroys the previous files. Each file (resource, ".dat",
// log) is written to a temporary beside it and replaces it whole only when
// complete (SafeOutputFileStream): a save that throws, a full disk or a
// killed process leave the previous file as it was, and a temporary left
// behind is deleted by the next save. A resource file is replaced when it
// is written, its ".dat" right after it; a named resource met in another's
// fields is written after the file that names it, so one file is open at a
// time however deep the names are nested. The log is one file per pass: it
// replaces the previous pass's log at EndSave, and a pass that does not
// reach EndSave (the archive destroyed, BeginSave called again, the
// process killed) leaves the previous log whole. With durable saves on
// (EnableDurableSaves), each file's data is flushed to the disk before it
// replaces the old one, which survives a crash of the system too; this
// costs a disk flush per file.
//
// Loading makes the object with the descriptor's CreateInstance, inserts it
// into the ResourceManager and names it before its fields are read (so a
// parent's index is lower than its children's), then fills it with
// SerializeInstance. A named resource met in another's fields is made when
// it is met (its file read up to its "Class Name") and filled after the
// file that names it: a load reads one file at a time, in the order the
// names were met, however deep they are nested, and has filled every one
// when it returns. So a routine gets the named resources it loads made but
// maybe not filled yet: it keeps the pointer and reads nothing through it.
// An unnamed resource is filled where it stands, inside its parent's data,
// by its routine called from its parent's: their nesting takes the thread's
// stack, and once seven eighths of it are used a load refuses to go deeper,
// throwing "Resources nested too deeply for the stack: " and the path.
// Files that refer to each other (A names B, B names A) load once each,
// and B's reference is A's object itself. A load that throws (a missing
// file, a class not registered, a file cut short or damaged) removes from
// the ResourceManager and deletes every object that load made, and leaves
// the names as they were; no stream or reader stays open. Reload refills
// the existing object in place: a failure may leave it partly refilled.
//
// Errors thrown as qel::Exception: "Resource isn't identified." (saving or
// reloading a resource without a name), "This resource name is already in
// use!" (renaming onto a taken name; renaming to a fresh name throws too
// unless the resource's index is 0, and leaves the fresh name bound to
// index 0), "Type of resource unknown!\nMake sure the ClassDescriptor is
// registered." (also for a descriptor whose CreateInstance gives null), and
// "Resource file cut short: " followed by the path for a file that ends
// before what its reader asks for (its header included), or "Resource file
// damaged: " and the path for one that holds a name longer than 1024
// characters. A missing file throws the file manager's exception; a file
// that is not a binary resource file throws UnknownFormat.
//
// An archive is used by one thread at a time.
#pragma once

#include <qel/archive.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qel
{

class ClassDescriptor;
struct Interface;
class SafeOutputFileStream;
class Serializer;

class QEL_API FileArchive : public Archive
{
public:
    // A null root is the empty text, a null extension ".bin".
    FileArchive(u32 version, const char* root, const char* extension);
    ~FileArchive() override;

    FileArchive(const FileArchive&) = delete;
    FileArchive& operator=(const FileArchive&) = delete;

    // Forgets the name of the resource with that index.
    void TakeOwnership(u32 index) override;
    void GiveOwnership(u32 index) override;
    // Reads a "Resource Identifier" and what it names.
    void* Load(Serializer& serializer) override;
    // Writes a "Resource Identifier" and, unnamed, the resource inline.
    void Save(Serializer& serializer, ClassDescriptor& cls, void* resource) override;

    // Names a resource (null removes its name); see the top of this file.
    void SetResourceName(void* resource, const char* name);
    // Null when no resource has that name.
    void* GetResourceNamed(const char* name);
    // The resource's name, null when it has none.
    const char* GetFilename(void* resource);
    bool IsResourceAlreadyNamed(void* resource);

    // Saves a named resource to its file.
    void Save(ClassDescriptor& cls, void* resource);
    // The resource saved under `name`, loaded from its file if not known.
    void* Load(const char* name);
    // Reads the resource's file again into the resource.
    void Reload(void* resource);

    void BeginSave();
    void EndSave();
    void SetSaved(const char* name, bool saved);
    void WriteToLog(const char* text);

    u32 GetVersion() const { return m_Version; }
    void SetVersion(u32 version) { m_Version = version; }
    const char* GetRoot() const { return m_Root.c_str(); }
    void SetRoot(const char* root) { m_Root = root ? root : ""; }
    const char* GetExtension() const { return m_Extension.c_str(); }
    void SetExtension(const char* extension) { m_Extension = extension ? extension : ".bin"; }
    bool GetLoggingMode() const { return m_LoggingMode; }
    void SetLoggingMode(bool logging) { m_LoggingMode = logging; }
    void EnableScriptOutput(bool enable) { m_ScriptOutput = enable; }
    bool IsScriptOutputEnabled() const { return m_ScriptOutput; }
    // Off by default: see "Saving never destroys" at the top of this file.
    void EnableDurableSaves(bool enable) { m_Durable = enable; }
    bool IsDurableSaveEnabled() const { return m_Durable; }
    // False between BeginSave and EndSave.
    bool IsOutsideSavePass() const { return m_OutsidePass; }

    // The name of the file this thread is loading, null when none.
    static const char* GetNamedPtr();

    typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> Text;

private:
    typedef std::map<Text, u32, std::less<Text>, GeneralAllocator<std::pair<const Text, u32>>>
        Names;
    typedef std::map<u32, Text, std::less<u32>, GeneralAllocator<std::pair<const u32, Text>>>
        Identities;
    typedef std::set<Text, std::less<Text>, GeneralAllocator<Text>> NameSet;

    // An object made by the load under way, deleted if that load fails.
    struct Made
    {
        void* resource;
        u32 index;
    };

    Text PathOf(const Text& name) const;
    void Bind(const Text& name, u32 index);
    // The name of a resource the manager knows, null when it has none (or
    // the manager does not know it).
    const Text* NameOf(void* resource);
    // Writes the file of `name`, and after it those it names, unless a file
    // is being written: then it is written after that one.
    void SaveToFile(const Text& name, ClassDescriptor& cls, void* resource);
    void WriteFile(const Text& name, ClassDescriptor& cls, void* resource);
    void SaveToStream(Serializer& serializer, ClassDescriptor& cls, void* resource);
    void* LoadFromFile(const Text& name, u32& index);
    // Makes an object of the class, lists it as made by this load and
    // inserts it into the ResourceManager; `name` names it when not null.
    Interface* Make(const ClassDescriptor& cls, u32& index, const Text* name);
    // Opens the resource file of `name`, reads up to its class and calls
    // read(reader, cls); a file that ends early throws "cut short".
    template <class Read>
    void ReadFile(const Text& name, Read read);
    // Reads the fields of the file of `name` into `object`, made of `cls`
    // (any class when null).
    void Fill(const Text& name, Interface* object, const ClassDescriptor* cls);
    // Runs a load; the outermost one fills the resources left pending and
    // rolls back what it made if it throws.
    template <class Body>
    void* Transaction(Body body);

    u32 m_Version;
    Text m_Root;
    Text m_Extension;
    bool m_OutsidePass;
    bool m_LoggingMode;
    SafeOutputFileStream* m_Log;
    Names m_Names;
    Identities m_Identities;
    NameSet m_Saved;
    bool m_ScriptOutput;
    bool m_Durable = false;
    u32 m_LoadDepth;
    std::vector<Made, GeneralAllocator<Made>> m_Made;
    // Named resources made during a load, whose files are read after it.
    struct Pending
    {
        Text name;
        Interface* object;
        const ClassDescriptor* cls;
    };
    std::deque<Pending, GeneralAllocator<Pending>> m_Pending;
    // Named resources met while a file is written, written after it.
    struct Unwritten
    {
        Text name;
        ClassDescriptor* cls;
        void* resource;
    };
    std::deque<Unwritten, GeneralAllocator<Unwritten>> m_Unwritten;
    bool m_Writing = false;
};

} // namespace qel
