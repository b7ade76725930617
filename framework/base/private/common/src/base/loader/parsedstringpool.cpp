#include <qel/parsedstringpool.h>

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include "base/core/singleton.h"

#include <cstring>

namespace qel
{

std::atomic<ParsedStringPool*> ParsedStringPool::ms_SingletonInstance{nullptr};

ParsedStringPool* ParsedStringPool::CreateSingletonInstance()
{
    // The general allocator first, so that it outlives the pool at exit.
    Mem::GetGeneralAlloc();
    return Singleton<ParsedStringPool, HeapStorage<ParsedStringPool>>::Create(ms_SingletonInstance,
                                                                              "ParsedStringPool");
}

ParsedStringPool::~ParsedStringPool()
{
    for (auto& entry : m_Texts)
        Free(entry.second);
}

void ParsedStringPool::Free(const Record& record)
{
    // A text the pool was handed goes back to the allocator that owns it,
    // if one does: a literal handed over is left alone.
    Allocator* owner = record.copied ? Mem::GetGeneralAlloc()
                                     : PageManager::GetSingletonInstance().FindOwner(record.text);
    if (owner != nullptr)
        owner->Free(record.text);
}

const char* ParsedStringPool::Create(const char* text, bool copy)
{
    Map& texts = GetSingletonInstance().m_Texts;
    const std::string_view key(text);
    const auto found = texts.find(key);
    if (found != texts.end())
    {
        // A text pooled already keeps its pointer, also when the caller
        // offers its own: trees and handles may hold the pooled one.
        ++found->second.references;
        return found->second.text;
    }
    char* stored = const_cast<char*>(text);
    if (copy)
    {
        stored = static_cast<char*>(Mem::GetGeneralAlloc()->Malloc(u32(key.size() + 1)));
        if (stored == nullptr)
            return nullptr; // reported by the allocator
        std::memcpy(stored, text, key.size() + 1);
    }
    texts.emplace(std::string_view(stored, key.size()), Record{stored, 1, copy});
    return stored;
}

const char* ParsedStringPool::Search(const char* text)
{
    Map& texts = GetSingletonInstance().m_Texts;
    const auto found = texts.find(std::string_view(text));
    return found == texts.end() ? nullptr : found->second.text;
}

void ParsedStringPool::Release(const char* text)
{
    Map& texts = GetSingletonInstance().m_Texts;
    const auto found = texts.find(std::string_view(text));
    if (found == texts.end() || --found->second.references != 0)
        return;
    const Record record = found->second;
    texts.erase(found);
    Free(record);
}

u32 ParsedStringPool::GetCount()
{
    return u32(GetSingletonInstance().m_Texts.size());
}

} // namespace qel
