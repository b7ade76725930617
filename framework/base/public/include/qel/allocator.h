// The interface behind every allocation of the library.
//
// The NoThrow operations return null on failure and report nothing; the
// wrappers Malloc, MallocDebug, ReAlloc and ReAllocDebug report a failure as
// the fatal error "Malloc failed: no more available memory" and return null
// if the process goes on. Nothing here throws.
//
// Allocator objects themselves live on the Native allocator (Mem): their
// operator new and delete go there, never to the allocator being built.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/allocatorstatmarker.h>
#include <qel/export.h>
#include <qel/interface.h>
#include <qel/types.h>

#include <cstddef>

namespace qel
{

// The collector of the HTML statistics report; its shape is open, and no
// allocator of the library fills it yet.
class MemoryTagsManager;
class OutputStream;

class QEL_API Allocator : public Interface
{
public:
    // Makes sure the default debugger stream and the memory error category
    // exist (the first allocator built registers "Memory" under "Base").
    Allocator();
    ~Allocator() override;

    virtual void* MallocNoThrow(unsigned int size) = 0;
    virtual void Free(const void* p) = 0;
    // Releases everything this allocator handed out.
    virtual void FreeAll() = 0;
    virtual void* ReAllocNoThrow(void* p, unsigned int size) = 0;
    // Writes the allocator's statistics to `out` (the default debugger
    // stream when null); `buffer` is a title written first when not null.
    virtual void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                                OutputStream* out, char* buffer) = 0;
    virtual void FillStatMarker(AllocatorStatMarker& marker);
    virtual bool ValidateMemory() = 0;
    virtual bool IsValidPointer(const void* p) = 0;
    // The largest request this allocator serves.
    virtual unsigned int GetMaxSupportedAllocSize() const = 0;
    virtual u32 GetErrorCategory() const = 0;
    // The debug forms carry a tag and the caller's file and line. By default
    // they drop them and call the plain forms; an allocator that keeps them,
    // or words its reports apart, overrides what differs.
    virtual void* MallocDebugNoThrow(unsigned int size, const char* tag, const char* file,
                                     u32 line);
    virtual void* ReAllocDebugNoThrow(void* p, unsigned int size, const char* tag, const char* file,
                                      u32 line);
    virtual void FreeDebug(const void* p, const char* file, u32 line);
    // Moves the block `p` into `target`; null (with `p` still valid) when
    // the target cannot take it.
    virtual void* Transfert(Allocator* target, void* p, unsigned int size) = 0;
    virtual void* TransfertDebug(Allocator* target, void* p, unsigned int size, const char* tag,
                                 const char* file, u32 line);
    virtual void AddContext(const char* name);
    virtual void RemoveContext();
    virtual void FillTagManagerForHTMLStatistics(MemoryTagsManager& tags, char* buffer);

    void* Malloc(unsigned int size);
    void* MallocDebug(unsigned int size, const char* tag, const char* file, u32 line);
    void* ReAlloc(void* p, unsigned int size);
    void* ReAllocDebug(void* p, unsigned int size, const char* tag, const char* file, u32 line);

    // Reports `message` as a fatal error in the "Base" category: a Yes
    // breaks into the debugger, then the process ends either way. Returns
    // null when the host lets the process go on.
    void* vError(const char* message);

    // The allocator whose pages hold `p`, from the page manager's page
    // records. An address no allocator owns is a fatal error (null if the
    // process goes on).
    static Allocator* GetOwner(const void* p);

    // Allocator objects are carried by the Native allocator.
    QEL_NATIVE_ALLOCATION_OPERATORS

protected:
    Allocator(const Allocator&) = delete;
    Allocator& operator=(const Allocator&) = delete;
};

} // namespace qel
