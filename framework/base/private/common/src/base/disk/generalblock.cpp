#include "base/disk/generalblock.h"

#include <qel/allocator.h>
#include <qel/errormanager.h>
#include <qel/mem.h>
#include <qel/report.h>

namespace qel
{

void* AllocateGeneralBlock(std::size_t size)
{
    if (Allocator* general = Mem::GetGeneralAlloc())
        return general->Malloc(static_cast<unsigned int>(size)); // reports its own failure
    QEL_FATAL_ERROR(ErrorManager::BaseCategory, "Malloc failed: no more available memory");
    return nullptr;
}

void FreeGeneralBlock(void* p)
{
    if (p != nullptr)
        if (Allocator* owner = Allocator::GetOwner(p))
            owner->Free(p);
}

} // namespace qel
