#include "base/loader/parsedtreeallocator.h"

#include "base/core/singleton.h"

namespace qel
{

std::atomic<ParsedTreeAllocator*> ParsedTreeAllocator::ms_SingletonInstance{nullptr};

ParsedTreeAllocator* ParsedTreeAllocator::CreateSingletonInstance()
{
    return Singleton<ParsedTreeAllocator>::Create(ms_SingletonInstance, "ParsedTreeAllocator");
}

} // namespace qel
