// Helpers of the memory tests: capturing a dump, spelling addresses as the
// dumps and messages do, a seeded multithreaded churn with content checks,
// and a page manager left with no page to give.
#pragma once

#include <qel/allocator.h>
#include <qel/allocatorstatistics.h>
#include <qel/mem.h>
#include <qel/outputstream.h>
#include <qel/pagemanager.h>
#include <qel/provider.h>

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace qeltest
{

// Collects what a dump or a report writes, through blocks of its own: not
// through the library's allocators, which it may be showing.
class DumpCapture : public qel::OutputStream
{
public:
    DumpCapture() : OutputStream(&m_Sink) {}
    ~DumpCapture() override { Finish(); }

    qel::OutputStream* Stream() { return this; }

    // The text written so far.
    const std::string& Text()
    {
        Flush();
        return m_Sink.text;
    }

    // The text written so far, cut at each CR LF.
    std::vector<std::string> Lines()
    {
        const std::string& text = Text();
        std::vector<std::string> lines;
        for (std::size_t begin = 0; begin < text.size();)
        {
            std::size_t end = text.find("\r\n", begin);
            if (end == std::string::npos)
                end = text.size();
            lines.push_back(text.substr(begin, end - begin));
            begin = end + 2;
        }
        return lines;
    }

private:
    struct Sink : qel::Provider
    {
        Sink() { m_Open = true; }
        void Request(qel::u64, unsigned char*& block, unsigned char*& current,
                     unsigned char*& end) override
        {
            block = current = buffer;
            end = buffer + sizeof buffer;
        }
        void Return(void* block, void* end) override
        {
            text.append(static_cast<char*>(block), static_cast<char*>(end));
        }
        void Return(void* block) override { Return(block, buffer + sizeof buffer); }
        unsigned char buffer[1000];
        std::string text;
    } m_Sink;
};

inline std::string Hex(const void* p)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%08" PRIXPTR, reinterpret_cast<std::uintptr_t>(p));
    return text;
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments)
{
    char text[512];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

// Threads 1 to `threads`, each seeded with its number, allocate, reallocate
// and free through `allocator` for `steps` steps, keeping at least 50 blocks
// of sizes drawn by `size(random)`, and hand some of their blocks to the next
// thread, which checks, reallocates and frees them in its turn. Every block
// carries a pattern of its own, checked before it changes and before it goes.
template <class Size>
void ChurnWithContentChecks(qel::Allocator& allocator, unsigned threads, int steps, Size size)
{
    struct Block
    {
        unsigned char* p;
        unsigned size;
        unsigned char fill;
    };
    auto intact = [](const Block& block)
    {
        for (unsigned i = 0; i < block.size; ++i)
            if (block.p[i] != block.fill)
                return false;
        return true;
    };
    struct Mailbox
    {
        std::mutex lock;
        std::vector<Block> blocks;
    };
    std::vector<Mailbox> mailboxes(threads);
    auto worker = [&](unsigned index)
    {
        std::mt19937 random(index + 1);
        std::vector<Block> live;
        for (int step = 0; step < steps; ++step)
        {
            {
                std::lock_guard<std::mutex> guard(mailboxes[index].lock);
                for (const Block& block : mailboxes[index].blocks)
                    live.push_back(block);
                mailboxes[index].blocks.clear();
            }
            const unsigned action = random() % 8;
            if (action < 3 || live.size() < 50)
            {
                const unsigned bytes = size(random);
                auto* p = static_cast<unsigned char*>(allocator.MallocNoThrow(bytes));
                ASSERT_NE(p, nullptr);
                const auto fill = static_cast<unsigned char>(random());
                std::memset(p, fill, bytes);
                live.push_back({p, bytes, fill});
                continue;
            }
            const std::size_t at = random() % live.size();
            Block& block = live[at];
            ASSERT_TRUE(intact(block));
            if (action == 7 && threads > 1)
            {
                Mailbox& next = mailboxes[(index + 1) % threads];
                std::lock_guard<std::mutex> guard(next.lock);
                next.blocks.push_back(block);
            }
            else if (action < 6)
            {
                allocator.Free(block.p);
            }
            else
            {
                const unsigned bytes = size(random);
                auto* p = static_cast<unsigned char*>(allocator.ReAllocNoThrow(block.p, bytes));
                ASSERT_NE(p, nullptr);
                block.p = p;
                block.size = bytes < block.size ? bytes : block.size;
                ASSERT_TRUE(intact(block)); // what fits was kept
                std::memset(p, block.fill, bytes);
                block.size = bytes;
                continue;
            }
            live[at] = live.back();
            live.pop_back();
        }
        for (const Block& block : live)
        {
            ASSERT_TRUE(intact(block));
            allocator.Free(block.p);
        }
    };
    std::vector<std::thread> running;
    for (unsigned index = 0; index < threads; ++index)
        running.emplace_back(worker, index);
    for (std::thread& thread : running)
        thread.join();
    // What was handed to a thread that had finished.
    for (Mailbox& mailbox : mailboxes)
        for (const Block& block : mailbox.blocks)
        {
            EXPECT_TRUE(intact(block));
            allocator.Free(block.p);
        }
}

// The number in a dump's "Blocks held in other threads' caches: N", or -1.
inline long HeldInOtherThreadsCaches(DumpCapture& dump)
{
    const std::string prefix = "Blocks held in other threads' caches: ";
    for (const std::string& line : dump.Lines())
        if (line.rfind(prefix, 0) == 0)
            return std::stol(line.substr(prefix.size()));
    return -1;
}

// While it lives, the page manager may take nothing more from the system
// and every page it has is taken: allocators find no page to grow by.
class PagesDrained
{
public:
    PagesDrained()
    {
        qel::Mem::SetPageManagerLimits(m_First, m_Pages.GetSystemBytes(), m_Step);
        while (void* page = m_Drain->MallocNoThrow(4096))
            m_Taken.push_back(page);
    }
    ~PagesDrained()
    {
        for (void* page : m_Taken)
            m_Drain->Free(page);
        delete m_Drain;
        qel::Mem::SetPageManagerLimits(m_First, m_Maximum, m_Step);
    }
    PagesDrained(const PagesDrained&) = delete;
    PagesDrained& operator=(const PagesDrained&) = delete;

private:
    qel::PageManager& m_Pages = qel::PageManager::GetSingletonInstance();
    const qel::u32 m_First = m_Pages.GetFirstMetapageSize(), m_Maximum = m_Pages.GetMaximumSize(),
                   m_Step = m_Pages.GetMetapageStep();
    qel::Allocator* m_Drain = qel::Mem::CreatePageAllocator();
    std::vector<void*> m_Taken;
};

} // namespace qeltest
