// CriticalSection on Linux: a three-state futex lock (free, locked, locked
// with waiters) with an owner and a recursion count. The owner's thread
// re-enters without touching the lock word.
#include <qel/criticalsection.h>

#include <atomic>
#include <cstdint>
#include <new>

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qel
{
namespace
{

enum : u32
{
    Free = 0,
    Locked = 1,
    Contended = 2,
};

struct Section
{
    std::atomic<u32> state{Free};
    u32 recursion = 0;
    std::atomic<std::uintptr_t> owner{0};
};

static_assert(sizeof(Section) <= 40 && alignof(Section) <= 8, "CriticalSection storage too small");
static_assert(std::atomic<u32>::is_always_lock_free, "the lock word must be lock-free");

Section& Get(unsigned char* storage)
{
    return *std::launder(reinterpret_cast<Section*>(storage));
}

// The thread's identity: its thread pointer, which is what pthread_self
// returns on glibc, read from the segment register without a call.
std::uintptr_t Self()
{
#if defined(__GLIBC__) && (defined(__x86_64__) || defined(__i386__))
    return reinterpret_cast<std::uintptr_t>(__builtin_thread_pointer());
#else
    return static_cast<std::uintptr_t>(pthread_self());
#endif
}

void FutexWait(std::atomic<u32>& word, u32 expected)
{
    syscall(SYS_futex, reinterpret_cast<u32*>(&word), FUTEX_WAIT_PRIVATE, expected, nullptr,
            nullptr, 0);
}

void FutexWakeOne(std::atomic<u32>& word)
{
    syscall(SYS_futex, reinterpret_cast<u32*>(&word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// Taken when the first attempt finds the lock held: spin briefly (the holder
// usually leaves within a few hundred cycles), then sleep on the futex.
void EnterContended(Section& lock)
{
    for (int spin = 0; spin < 100; ++spin)
    {
        u32 expected = Free;
        if (lock.state.load(std::memory_order_relaxed) == Free &&
            lock.state.compare_exchange_weak(expected, Locked, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            return;
#if defined(__i386__) || defined(__x86_64__)
        __builtin_ia32_pause();
#endif
    }
    // Marking the word Contended makes the holder's Leave wake a sleeper.
    while (lock.state.exchange(Contended, std::memory_order_acquire) != Free)
        FutexWait(lock.state, Contended);
}

} // namespace

CriticalSection::CriticalSection()
{
    new (m_Storage) Section;
}

CriticalSection::~CriticalSection()
{
    Get(m_Storage).~Section();
}

void CriticalSection::Enter()
{
    Section& lock = Get(m_Storage);
    const std::uintptr_t self = Self();
    if (lock.owner.load(std::memory_order_relaxed) == self)
    {
        ++lock.recursion;
        return;
    }
    u32 expected = Free;
    if (!lock.state.compare_exchange_strong(expected, Locked, std::memory_order_acquire,
                                            std::memory_order_relaxed))
        EnterContended(lock);
    lock.owner.store(self, std::memory_order_relaxed);
    lock.recursion = 1;
}

bool CriticalSection::TryEnter()
{
    Section& lock = Get(m_Storage);
    const std::uintptr_t self = Self();
    if (lock.owner.load(std::memory_order_relaxed) == self)
    {
        ++lock.recursion;
        return true;
    }
    u32 expected = Free;
    if (!lock.state.compare_exchange_strong(expected, Locked, std::memory_order_acquire,
                                            std::memory_order_relaxed))
        return false;
    lock.owner.store(self, std::memory_order_relaxed);
    lock.recursion = 1;
    return true;
}

void CriticalSection::Leave()
{
    Section& lock = Get(m_Storage);
    if (--lock.recursion != 0)
        return;
    lock.owner.store(0, std::memory_order_relaxed);
    if (lock.state.exchange(Free, std::memory_order_release) == Contended)
        FutexWakeOne(lock.state);
}

} // namespace qel
