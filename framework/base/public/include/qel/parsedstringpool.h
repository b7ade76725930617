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
#include <cstdint>
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

    // Moves the window of records the table reaches without its far list
    // to start at `base` (rounded down to 8 bytes), and gives where it
    // started: a seam for tests, which move it away to put records
    // outside. False without memory.
    static bool MoveWindow(std::uintptr_t base, std::uintptr_t& former);
    // The number of texts whose records lie outside the window.
    static u32 GetFarCount();

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
    ParsedStringPool()
        : m_Slots(nullptr), m_Tags(nullptr), m_Base(0), m_Placed(false), m_Capacity(0), m_Used(0),
          m_Count(0), m_Adopted(nullptr), m_AdoptedCount(0), m_AdoptedCapacity(0)
    {
    }
    ~ParsedStringPool();
    ParsedStringPool(const ParsedStringPool&) = delete;
    ParsedStringPool& operator=(const ParsedStringPool&) = delete;

    typedef std::vector<Record*, GeneralAllocator<Record*>> FarList;

    static ParsedStringPool* CreateSingletonInstance();
    static void Free(Record* record);
    // The slot holding the text, or the free slot where it would go.
    u32 Find(const char* text, u32 length, u32 hash) const;
    // Grows the table by half, or rebuilds it at its size when tombstones
    // fill it (or makes the first one); false without memory.
    bool Grow();
    // Remakes the table at `capacity` slots.
    bool Rebuild(u32 capacity);
    // The record of a slot that holds one.
    Record* RecordAt(u32 slot) const;
    // The slot of a record in the window at `base`, or else of one put on
    // `far`; false without memory.
    static bool Place(Record* record, std::uintptr_t base, FarList& far, u32& slot);
    static bool PlaceFar(Record* record, FarList& far, u32& slot);
    // Takes a record off the far list, moving the last one in its place.
    void Unlist(u32 slot);

    // The open-addressing table: for each slot where its record is (see
    // base/loader/parsedrecord.h), and beside it, in the same block, a tag
    // of its text's hash: five bytes a slot, so that the table stays small
    // and a probe reads few cache lines.
    u32* m_Slots;
    std::uint8_t* m_Tags;
    // The records of the slots lie from here on, up to 30 GB; those that
    // do not are listed here. The window is placed with the first table.
    std::uintptr_t m_Base;
    bool m_Placed;
    FarList m_Far;
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
    void Remove(u32 slot);

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
