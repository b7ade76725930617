#include <qel/loader.h>

#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/parsednode.h>
#include <qel/parsedstringpool.h>
#include <qel/parser.h>

#include "base/core/singleton.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace qel
{

std::atomic<Loader*> Loader::ms_SingletonInstance{nullptr};
std::atomic<ParserPool*> ParserPool::ms_SingletonInstance{nullptr};

namespace
{

typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> Text;

Text Reason(const char* head, const char* tail)
{
    Text reason(head);
    reason += tail ? tail : "";
    return reason;
}

} // namespace

Loader::InvalidRequest::InvalidRequest(const char* request)
    : LoaderException(
          Reason("The requested section is invalid and cannot be searched.\n\nInvalid request:\n",
                 request)
              .c_str())
{
}

Loader::SectionNotFound::SectionNotFound(const char* request)
    : LoaderException(
          Reason("The requested section cannot be found.\n\nRequest:\n", request).c_str())
{
}

Loader::HandlerNotRegistered::HandlerNotRegistered(const char* identifier)
    : LoaderException(
          Reason("No handler were registred for this section.\n\nSection:\n", identifier).c_str())
{
}

// ---- loader ------------------------------------------------------------------

Loader* Loader::CreateSingletonInstance()
{
    ParsedStringPool::GetSingletonInstance(); // outlives the loader at exit
    return Singleton<Loader, HeapStorage<Loader>>::Create(ms_SingletonInstance, "Loader");
}

void Loader::Register(const char* identifier, LoaderHandler* handler)
{
    GetSingletonInstance().m_Handlers[ParsedString(identifier)] = handler;
}

LoaderHandler* Loader::GetHandler(const char* identifier)
{
    Handlers& handlers = GetSingletonInstance().m_Handlers;
    const auto found = handlers.find(ParsedString(identifier));
    return found == handlers.end() ? nullptr : found->second;
}

void* Loader::Load(const char* request, void* data, bool allowMissing)
{
    const char* caret = request ? std::strchr(request, '^') : nullptr;
    if (caret == nullptr)
        throw InvalidRequest(request);

    char path[FileManager::PathSize] = "";
    if (request[0] != '/')
        FileManager::GetSingletonInstance().GetCurrentDirectory(path, sizeof path);
    const std::size_t length = std::strlen(path);
    const std::size_t part = std::size_t(caret - request);
    if (length + part >= sizeof path)
        throw SectionNotFound(request);
    std::memcpy(path + length, request, part);
    path[length + part] = 0;

    ParsedFile* file = ParserPool::GetFile(path);
    ParsedRoot* section = file ? file->FindChild(caret + 1) : nullptr;
    if (section == nullptr)
    {
        if (!allowMissing)
            throw SectionNotFound(request);
        return nullptr;
    }
    return Load(static_cast<ParsedSection*>(section), data);
}

void* Loader::Load(ParsedSection* section, void* data)
{
    const char* identifier = section->GetIdentifier();
    LoaderHandler* handler = identifier ? GetHandler(identifier) : nullptr;
    if (handler == nullptr)
        throw HandlerNotRegistered(identifier);
    return handler->Load(section, data);
}

ParsedFile* Loader::GetFile(const char* path)
{
    return ParserPool::GetFile(path);
}

void Loader::ReleaseCachedFiles()
{
    ParserPool::ReleaseCachedFiles();
}

void Loader::ReleaseCachedFiles(ParsedFile* file)
{
    ParserPool::ReleaseCachedFile(file);
}

void Loader::SetParsingComment(bool parsing)
{
    Parser::SetParsingComment(parsing);
}

// ---- handlers ------------------------------------------------------------------

LoaderHandler::LoaderHandler(const char* identifier)
    : m_Identifier(ParsedStringPool::Create(identifier, false))
{
    Loader::Register(m_Identifier, this);
}

LoaderHandler::LoaderHandler(const LoaderHandler& other)
    : m_Identifier(ParsedStringPool::Create(other.m_Identifier, false))
{
    Loader::Register(m_Identifier, this);
}

LoaderHandler& LoaderHandler::operator=(const LoaderHandler& other)
{
    if (this != &other)
    {
        ParsedStringPool::Create(other.m_Identifier, false);
        ParsedStringPool::Release(m_Identifier);
        m_Identifier = other.m_Identifier;
        Loader::Register(m_Identifier, this);
    }
    return *this;
}

LoaderHandler::~LoaderHandler()
{
    // A handler that dies stops serving its identifier, unless another one
    // took it over since. At exit the loader may be gone already.
    if (Loader* loader = Loader::ms_SingletonInstance.load(std::memory_order_acquire))
    {
        const auto found = loader->m_Handlers.find(ParsedString(m_Identifier));
        if (found != loader->m_Handlers.end() && found->second == this)
            loader->m_Handlers.erase(found);
    }
}

// ---- parser pool ---------------------------------------------------------------

ParserPool* ParserPool::CreateSingletonInstance()
{
    ParsedStringPool::GetSingletonInstance();
    return Singleton<ParserPool, HeapStorage<ParserPool>>::Create(ms_SingletonInstance,
                                                                  "ParserPool");
}

ParserPool::~ParserPool()
{
    for (auto& entry : m_Files)
        delete entry.second;
}

ParsedFile* ParserPool::GetFile(const char* path)
{
    Files& files = GetSingletonInstance().m_Files;
    const ParsedString key(path);
    const auto found = files.find(key);
    if (found != files.end())
        return found->second;
    ParsedFile* file = Parser::ParseFile(path);
    if (file != nullptr)
        files.emplace(ParsedString(file->GetIdentifier()), file);
    return file;
}

u32 ParserPool::GetCachedFileCount()
{
    return u32(GetSingletonInstance().m_Files.size());
}

ParsedRoot* ParserPool::GetCachedFile(u32 index)
{
    Files& files = GetSingletonInstance().m_Files;
    if (index >= files.size())
        return nullptr;
    auto at = files.begin();
    std::advance(at, index);
    return at->second;
}

void ParserPool::ReleaseCachedFile(ParsedFile* file)
{
    Files& files = GetSingletonInstance().m_Files;
    for (auto at = files.begin(); at != files.end(); ++at)
        if (at->second == file)
        {
            files.erase(at);
            delete file;
            return;
        }
}

void ParserPool::ReleaseCachedFiles()
{
    Files& files = GetSingletonInstance().m_Files;
    for (auto& entry : files)
        delete entry.second;
    files.clear();
}

} // namespace qel
