// Loading objects described in sectioned text files.
//
// A module registers one LoaderHandler per section identifier, usually as a
// static object. A request names a file and a path of sections in it:
//     data/objects.txt^Object:Lamp        the first Object named Lamp...
//     data/objects.txt^Object:La^Light    ...then its first Light section
// Identifiers and names match by prefix (Obj finds Object; "Object:" any
// Object). A relative file path is taken from the file manager's current
// directory. The loader gets the file's tree from the ParserPool, which
// parses each file once and keeps its tree until its cache is released,
// finds the section and returns what the section's handler makes of it.
//
// Failures throw, all as Loader::LoaderException (a qel::Exception):
//   InvalidRequest        an empty request or one without '^'
//   SectionNotFound       the file or the section is not there (unless the
//                         caller allows it: Load then returns null)
//   HandlerNotRegistered  no handler serves the section's identifier
// Syntax errors in a file are the parser's to report.
//
// The loader, the pool and the parser are used by one thread at a time;
// the loader and the pool can be created from any static constructor.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/exception.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/parsedstring.h>
#include <qel/types.h>

#include <atomic>
#include <map>

namespace qel
{

class LoaderHandler;
class ParsedFile;
class ParsedRoot;
class ParsedSection;

class QEL_API Loader
{
public:
    QEL_ALLOCATION_OPERATORS

    class QEL_API LoaderException : public Exception
    {
    public:
        explicit LoaderException(const char* reason) : Exception(reason) {}
    };
    class QEL_API InvalidRequest : public LoaderException
    {
    public:
        explicit InvalidRequest(const char* request);
    };
    class QEL_API SectionNotFound : public LoaderException
    {
    public:
        explicit SectionNotFound(const char* request);
    };
    class QEL_API HandlerNotRegistered : public LoaderException
    {
    public:
        explicit HandlerNotRegistered(const char* identifier);
    };

    // What the handler of the requested section returns (null when the
    // section is missing and `allowMissing` is set).
    static void* Load(const char* request, void* data, bool allowMissing = false);
    // The handler of `section`'s identifier applied to it.
    static void* Load(ParsedSection* section, void* data);

    static ParsedFile* GetFile(const char* path);
    static void ReleaseCachedFiles();
    static void ReleaseCachedFiles(ParsedFile* file);
    static void SetParsingComment(bool parsing);

    static Loader& GetSingletonInstance()
    {
        Loader* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? *instance : *CreateSingletonInstance();
    }

protected:
    friend class LoaderHandler;
    // Stores `handler` under `identifier` (a pooled text), replacing any
    // handler registered for it.
    static void Register(const char* identifier, LoaderHandler* handler);
    static LoaderHandler* GetHandler(const char* identifier);

private:
    template <class T, class Storage>
    friend class Singleton;

    typedef std::map<ParsedString, LoaderHandler*, std::less<ParsedString>,
                     GeneralAllocator<std::pair<const ParsedString, LoaderHandler*>>>
        Handlers;

    Loader() = default;
    ~Loader() = default;
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;
    static Loader* CreateSingletonInstance();

    Handlers m_Handlers;

    static std::atomic<Loader*> ms_SingletonInstance;
};

// Builds what a section describes. Construct it with the identifier of the
// sections it serves; it registers with the Loader there and then, replacing
// any handler of that identifier (the identifier's text must outlive it: a
// literal). A handler that dies while registered leaves its identifier
// without a handler.
class QEL_API LoaderHandler
{
public:
    QEL_ALLOCATION_OPERATORS

    explicit LoaderHandler(const char* identifier);
    LoaderHandler(const LoaderHandler& other);
    LoaderHandler& operator=(const LoaderHandler& other);
    virtual ~LoaderHandler();

    virtual void* Load(ParsedSection* section, void* data) = 0;

    const char* GetIdentifier() const { return m_Identifier; }

private:
    const char* m_Identifier;
};

// The parsed files, each parsed once and kept until released.
class QEL_API ParserPool
{
public:
    QEL_ALLOCATION_OPERATORS

    // The tree of the file at `path`, parsed on the first request; null
    // when it cannot be parsed (nothing is cached: a later request tries
    // again).
    static ParsedFile* GetFile(const char* path);
    static u32 GetCachedFileCount();
    // In the order of the paths.
    static ParsedRoot* GetCachedFile(u32 index);
    static void ReleaseCachedFile(ParsedFile* file);
    static void ReleaseCachedFiles();

    static ParserPool& GetSingletonInstance()
    {
        ParserPool* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? *instance : *CreateSingletonInstance();
    }

private:
    template <class T, class Storage>
    friend class Singleton;

    typedef std::map<ParsedString, ParsedFile*, std::less<ParsedString>,
                     GeneralAllocator<std::pair<const ParsedString, ParsedFile*>>>
        Files;

    ParserPool() = default;
    ~ParserPool();
    ParserPool(const ParserPool&) = delete;
    ParserPool& operator=(const ParserPool&) = delete;
    static ParserPool* CreateSingletonInstance();

    Files m_Files;

    static std::atomic<ParserPool*> ms_SingletonInstance;
};

} // namespace qel
