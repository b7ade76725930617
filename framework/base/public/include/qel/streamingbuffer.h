// The ring buffer of a streaming request: bytes read from a file at one end,
// copied out at the other, possibly by another thread.
//
// A buffer made for `size` bytes holds at most size - 1 of them. The write
// pointer may stand at the end of the storage until the next read wraps it,
// and the read pointer likewise until the next copy: so a ring filled to its
// end and then emptied is empty, not full. A read into an empty ring starts
// at the storage's start, so it fills the whole capacity in one piece. Every
// operation holds the buffer's lock.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class File;

class QEL_API StreamingBuffer
{
public:
    QEL_ALLOCATION_OPERATORS

    enum : u32
    {
        Marker = 0x12345678u
    };

    // Takes size + (size & 0x3FF) bytes from the General allocator. A size
    // below 2 is a usage fault; it and a failed allocation leave a buffer of
    // capacity 0 that reads and copies nothing.
    explicit StreamingBuffer(u32 size);
    ~StreamingBuffer();

    StreamingBuffer(const StreamingBuffer&) = delete;
    StreamingBuffer& operator=(const StreamingBuffer&) = delete;

    // The most bytes the ring can hold: the size asked for less one.
    u32 Size() const { return m_Capacity; }
    // False when the storage could not be had.
    bool IsValid() const { return m_Storage != nullptr; }
    // Empties the ring.
    void Reset();
    u32 DataAvailable();
    // Copies up to `count` bytes out of the ring, in at most two pieces, and
    // returns how many.
    u32 Copy(unsigned char* out, u32 count);
    // The bytes the next Copy would take first, left in the ring: points
    // `data` at them and returns how many lie in one piece there (0 and
    // null when the ring is empty). Read writes only into the free room, so
    // they stay as they are until Skip, Copy or Reset passes them.
    u32 Peek(const unsigned char*& data);
    // Passes over up to `count` bytes as Copy would take them, without
    // copying them, and returns how many.
    u32 Skip(u32 count);
    // Reads up to `count` bytes from `file` into the free room, in at most
    // two pieces, and returns how many. Stops at a short read of the file.
    u32 Read(File* file, u32 count);

private:
    u32 AvailableLocked() const;
    // Wraps the read pointer when bytes wait past the end, and returns how
    // many lie in one piece from it.
    u32 PieceLocked();
    // Copy's work, under the lock; a null `out` skips the bytes.
    u32 TakeLocked(unsigned char* out, u32 count);

    unsigned char* m_Storage;
    unsigned char* m_Read;
    unsigned char* m_Write;
    unsigned char* m_Start;
    unsigned char* m_End;
    u32 m_Capacity;
    CriticalSection m_Lock;
    u32 m_Marker;
};

} // namespace qel
