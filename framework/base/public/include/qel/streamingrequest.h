// A file read progressively at a data rate into a ring buffer.
//
// The owner calls Read with the number of bytes that should have arrived by
// now (the rate times the time since the start, say) and Copy to take what
// has arrived, or Peek and Skip to use it where it lies in the ring. Read
// never asks the file for more than half the rate at once and, when the
// request is ahead of its target, still reads a quarter of the rate (a
// prefetch that the ring bounds): an owner that takes the bytes out at once
// and wants the rate exactly calls Read only when bytes are due. The ring
// takes what room it has. Every public operation holds the request's lock,
// so Copy and the availability questions may come from another thread than
// Read.
//
// Positions and counts are 64-bit, so files of 4 GB and more stream whole.
// BytesRead and BytesRemaining stay at 0xFFFFFFFF while the true count is
// that or more; BytesRead64 and BytesRemaining64 give it.
//
// A request owns its file, whether it opened it from a virtual path or was
// handed it, and closes it when deleted; a Create that refuses its arguments
// closes it too. Deleting a request that a StreamingManager lists removes it
// from the list first; the manager deletes those still listed when it dies.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class File;
class StreamingBuffer;

class QEL_API StreamingRequest
{
public:
    QEL_ALLOCATION_OPERATORS

    enum : u32
    {
        Marker = 0x12345678u
    };

    // Rate in bytes per second, from 4 up; buffer size in bytes, from 2 up
    // (rate / 2 when not given). Reading starts at `offset` (0 when not
    // given) and stops after `total` bytes (the file's size when not
    // given). A rate or a size out of range is a usage fault:
    // Create closes the file and returns null, as it does when the
    // request's memory cannot be had. A null file is a usage fault too.
    static StreamingRequest* Create(File* file, u32 dataRate);
    static StreamingRequest* Create(File* file, u32 dataRate, u32 bufferSize);
    static StreamingRequest* Create(File* file, u32 dataRate, u32 bufferSize, u64 offset);
    static StreamingRequest* Create(File* file, u32 dataRate, u32 bufferSize, u64 offset,
                                    u64 total);
    static StreamingRequest* Create(File* file, u32 dataRate, u32 bufferSize, u64 offset, u64 total,
                                    bool active);
    // The same over the file at a virtual path, opened for reading through
    // the file manager; a missing file throws the file manager's exception.
    static StreamingRequest* Create(const char* path, u32 dataRate);
    static StreamingRequest* Create(const char* path, u32 dataRate, u32 bufferSize);
    static StreamingRequest* Create(const char* path, u32 dataRate, u32 bufferSize, u64 offset);
    static StreamingRequest* Create(const char* path, u32 dataRate, u32 bufferSize, u64 offset,
                                    u64 total);

    ~StreamingRequest();

    StreamingRequest(const StreamingRequest&) = delete;
    StreamingRequest& operator=(const StreamingRequest&) = delete;

    // Reads toward `target` bytes since the start (see above) and returns
    // how many arrived in the ring.
    u32 Read(s64 target);
    // Copies up to `count` bytes out of the ring; returns how many.
    u32 Copy(void* out, u32 count);
    // The bytes that Copy would take next, read where they lie in the ring
    // instead of copied: `data` points at them and the count of those in one
    // piece is returned (0 and null when none wait). They stay until Skip
    // (or Copy, or Reset) passes them; a later Read does not touch them.
    u32 Peek(const void*& data);
    // Passes over up to `count` bytes without copying them; returns how many.
    u32 Skip(u32 count);
    // What the ring holds; 0 when its memory could not be had.
    u32 DataAvailable();
    // Starts again from `offset`: nothing read, total - offset to go, the
    // ring emptied, and the file sought there when it can seek.
    void Reset(u64 offset);
    // Pausing marks the request for the manager's worker, which passes over
    // it; the owner decides whether to call Read meanwhile.
    void Pause(bool paused);
    bool Paused();
    // The negation of the active flag given at creation.
    bool IsDone() const { return !m_Active; }
    u32 Datarate() const { return m_DataRate; }

    u32 BytesRead();
    u32 BytesRemaining();
    u64 BytesRead64();
    u64 BytesRemaining64();
    // The ring's capacity, 0 without a ring.
    u32 BufferCapacity() const;

private:
    friend class StreamingManager;

    StreamingRequest(File* file, u32 dataRate, u32 bufferSize, u64 offset, u64 total, bool active);

    // True when the rate and the size can make a request (usage asserts).
    static bool Acceptable(File* file, u32 dataRate, u32 bufferSize);
    // Makes the request, or closes the file and returns null.
    static StreamingRequest* Make(File* file, u32 dataRate, u32 bufferSize, u64 offset, u64 total,
                                  bool wholeFile, bool active);
    static StreamingRequest* Open(const char* path, u32 dataRate, u32 bufferSize, u64 offset,
                                  u64 total, bool wholeFile);
    // The worker's visit: takes the lock and tells whether the request is
    // running (not paused, bytes remaining).
    bool Visit();

    File* m_File;
    bool m_Paused;
    bool m_Active;
    u64 m_Total;
    u32 m_Spare;
    u32 m_DataRate;
    u64 m_Remaining;
    u32 m_BufferSize;
    u64 m_BytesRead;
    StreamingBuffer* m_Buffer;
    CriticalSection m_Lock;
    u32 m_Marker;
};

} // namespace qel
