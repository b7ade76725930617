// One process-wide pool of reference-counted texts: every identifier, name,
// parameter and path of the parsed trees is interned here, so equal texts
// share one copy and compare by pointer.
//
// Create interns a text and takes a reference: a text already pooled gets
// one more reference and its pooled pointer is returned; a new text is
// stored as a copy (copy true; "Malloc failed: no more available memory"
// when the general allocator has no room) or as the caller's own pointer
// (copy false: the pool frees it on the last release through the allocator
// that owns it, if a page-based allocator of the library does; a literal is
// left alone). A text already pooled keeps its pooled pointer whatever
// `copy` says: trees and handles may be holding it. Search finds a text
// without taking a reference. Release drops one reference; the last one
// removes the text and frees it.
//
// The pool is created on first use, from any static constructor too. It is
// not locked: the parser, the loader and their handlers run on one thread.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class QEL_API ParsedStringPool
{
public:
    QEL_ALLOCATION_OPERATORS

    static const char* Create(const char* text, bool copy);
    // The first `length` characters of `text` (no zero inside; with copy
    // false, text[length] must be the terminating zero).
    static const char* Create(const char* text, u32 length, bool copy);
    static const char* Search(const char* text);
    static void Release(const char* text);
    // The number of texts pooled.
    static u32 GetCount();

    static ParsedStringPool& GetSingletonInstance()
    {
        ParsedStringPool* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? *instance : *CreateSingletonInstance();
    }

private:
    template <class T, class Storage>
    friend class Singleton;

    // One slot of the open-addressing table: empty (no text), a text, or
    // a tombstone left by a removal (kRemoved) that lookups step over.
    struct Slot
    {
        char* text;
        u32 hash;
        u32 length;
        u32 references;
        bool copied; // stored by the pool, on the general allocator
    };

    ParsedStringPool() : m_Slots(nullptr), m_Capacity(0), m_Used(0), m_Count(0) {}
    ~ParsedStringPool();
    ParsedStringPool(const ParsedStringPool&) = delete;
    ParsedStringPool& operator=(const ParsedStringPool&) = delete;

    static ParsedStringPool* CreateSingletonInstance();
    static void Free(const Slot& slot);
    // The slot holding the text, or the empty slot where it would go.
    Slot* Find(const char* text, u32 length, u32 hash);
    // Doubles the table (or makes the first one); false without memory.
    bool Grow();

    Slot* m_Slots;
    u32 m_Capacity; // a power of two
    u32 m_Used;     // texts and tombstones
    u32 m_Count;    // texts

    static std::atomic<ParsedStringPool*> ms_SingletonInstance;
};

} // namespace qel
