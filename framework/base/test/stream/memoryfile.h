// Helpers of the stream tests. A File over bytes held in memory: its contents
// are a known pattern, reads can be cut short, reads and seeks are recorded
// and its destruction is counted.
#pragma once

#include <qel/file.h>

#include "support/scriptedhost.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

namespace streamtest
{

inline unsigned char PatternByte(qel::u64 i)
{
    return static_cast<unsigned char>(i * 131 + (i >> 8) * 7 + 3);
}

// The texts of the asserts the host was asked about, in order.
inline std::vector<std::string> FailedAsserts(const qeltest::ScriptedHost& host)
{
    std::vector<std::string> texts;
    for (const qeltest::ScriptedHost::Question& question : host.questions)
        if (question.caption == "Assert Failed")
            texts.push_back(question.text);
    return texts;
}

class MemoryFile : public qel::File
{
public:
    explicit MemoryFile(qel::u32 length, std::atomic<int>* closed = nullptr)
        : File("/memory/file.bin", nullptr, length, File::OpenRead, true, false), bytes(length),
          closed(closed)
    {
        for (qel::u32 i = 0; i < length; ++i)
            bytes[i] = PatternByte(i);
    }
    ~MemoryFile() override
    {
        if (closed != nullptr)
            ++*closed;
    }

    std::vector<unsigned char> bytes;
    std::atomic<int>* closed;
    // Every read is cut to this many bytes.
    qel::u32 readLimit = 0xFFFFFFFFu;
    std::vector<qel::u32> reads; // the count asked by each read
    std::vector<qel::u64> seeks; // the target of each seek

protected:
    qel::u32 DoRead(void* buffer, qel::u32 count) override
    {
        reads.push_back(count);
        const qel::u64 position = GetFilePosition();
        const qel::u64 left = position < bytes.size() ? bytes.size() - position : 0;
        const qel::u32 n = qel::u32(std::min<qel::u64>({count, left, readLimit}));
        std::memcpy(buffer, bytes.data() + position, n);
        return n;
    }
    qel::u64 DoSeek(qel::u64 target) override
    {
        seeks.push_back(target);
        return target;
    }
};

} // namespace streamtest
