// One process-wide pool of reference-counted texts: every identifier, name,
// parameter and path of the parsed trees is interned here, so equal texts
// share one copy and compare by pointer.
//
// Create interns a text and takes a reference: a text already pooled gets
// one more reference and its pooled pointer is returned; a new text gets a
// record on the general allocator and is stored as a copy behind it (copy
// true) or as the caller's own pointer (copy false: the pool frees it on
// the last release through the allocator that owns it, if a page-based
// allocator of the library does; a literal is left alone). When the general
// allocator has no room, "Malloc failed: no more available memory" is
// reported and Create returns null. A text already pooled keeps its pooled
// pointer whatever `copy` says: trees and handles may be holding it. Search
// finds a text without taking a reference. Release drops one reference of
// the text equal to its argument; the last one removes the text and frees
// it. A ParsedString counts its references by the pointer it holds,
// without looking its text up.
//
// The pool is created on first use, from any static constructor too. It is
// not locked: the parser, the loader and their handlers run on one thread.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <atomic>
#include <vector>

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

    // A pooled text's record, on the general allocator (see
    // base/loader/parsedrecord.h); a text the pool copied follows its record
    // in the same block. The parsed tree's nodes link to records, which
    // they take and drop references on as handles do on texts.
    struct Record;
    // Intern, giving the text's record.
    static Record* InternRecord(const char* text, u32 length, u32 hash, bool copy);
    // Create(text, true), giving the text's record.
    static Record* CreateRecord(const char* text);
    static void ReleaseRecord(Record* record);
    // One more reference on a record whose head is full: its count goes on
    // in the table of carries. False, the count unchanged, when the table
    // finds no memory (reported by the allocator).
    static bool Carry(Record* record);

private:
    template <class T, class Storage>
    friend class Singleton;
    friend class Parser;       // hashes the texts of its block itself
    friend class ParsedString; // takes and drops references on texts it holds

    // One reference more or less on a text the pool handed out, found
    // without a lookup: the record of a copied text stands right before
    // it. Only an adopted text, which lies elsewhere, is looked up.
    static void AddHeld(const char* pooled);
    static void ReleaseHeld(const char* pooled);

    // The hash and the length of a terminated text.
    static u32 HashTerminated(const char* text, u32& length);
    // Create, with the text's hash already worked out.
    static const char* Intern(const char* text, u32 length, u32 hash, bool copy);
    // One slot of the open-addressing table, eight bytes so that a probe
    // reads few cache lines: empty (0), a tombstone left by a removal
    // (kRemoved) that lookups step over, or a record's address with the top
    // bits of its text's hash above it, so that only a matching slot leads
    // to the record.
    typedef u64 Slot;

    ParsedStringPool()
        : m_Slots(nullptr), m_Capacity(0), m_Used(0), m_Count(0), m_Adopted(nullptr),
          m_AdoptedCount(0), m_AdoptedCapacity(0)
    {
    }
    ~ParsedStringPool();
    ParsedStringPool(const ParsedStringPool&) = delete;
    ParsedStringPool& operator=(const ParsedStringPool&) = delete;

    static ParsedStringPool* CreateSingletonInstance();
    static void Free(Record* record);
    // The slot holding the text, or the free slot where it would go.
    Slot* Find(const char* text, u32 length, u32 hash);
    // Grows the table by half, or rebuilds it at its size when tombstones
    // fill it (or makes the first one); false without memory.
    bool Grow();

    Slot* m_Slots;
    u32 m_Capacity;
    u32 m_Used;  // texts and tombstones
    u32 m_Count; // texts

    // The adopted texts' addresses, in order: a held text is adopted when
    // it is one of them.
    bool IsAdopted(const char* text) const;
    // False without memory.
    bool NoteAdopted(const char* text);
    void ForgetAdopted(const char* text);
    // The record of a text the pool handed out.
    Record* HeldRecord(const char* pooled);
    // Drops a reference of a record; the last removes it.
    void Drop(Record* record);
    // Removes the record in `slot`, which no one refers to.
    void Remove(Slot* slot);

    const char** m_Adopted;
    u32 m_AdoptedCount;
    u32 m_AdoptedCapacity;

    // The records whose count has crossed their head, in address order,
    // with the number of times it did (net of the times it came back).
    struct Carried
    {
        Record* record;
        u32 carries;
    };
    std::vector<Carried, GeneralAllocator<Carried>> m_Carried;
    // Where the record is, or would go, among them.
    Carried* CarriedPlace(Record* record);

    static std::atomic<ParsedStringPool*> ms_SingletonInstance;
};

} // namespace qel
