// Records a program's allocation traffic: preload it, and every malloc,
// calloc, realloc, free and aligned allocation of the program (and of the
// programs it starts) is logged, in the order the calls really happened.
//
//   QEL_ALLOC_TRACE=/tmp/trace LD_PRELOAD=libqel_alloc_recorder.so program ...
//
// writes /tmp/trace.<pid> for each process. The calls go on to glibc's own
// functions; a lock held around each call and its record makes the log one
// true order of all threads' calls, so that an address is never freed in the
// log before it was handed out. qel_allocator_replay_bench --convert turns a log
// into a replayable trace.
//
// A record is an operation byte, the calling thread's number (1 byte, in
// order of first call, 255 for the 255th thread and after), then
// little-endian fields: malloc and calloc the size (8 bytes) and the block
// (8); realloc the old block, the size and the new block; free the block;
// aligned the alignment, the size and the block. Nothing here allocates.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

extern "C"
{
    void* __libc_malloc(size_t);
    void* __libc_calloc(size_t, size_t);
    void* __libc_realloc(void*, size_t);
    void __libc_free(void*);
    void* __libc_memalign(size_t, size_t);
}

namespace
{

enum Operation : unsigned char
{
    kMalloc = 'M',
    kCalloc = 'C',
    kRealloc = 'R',
    kFree = 'F',
    kAligned = 'A',
};

pthread_mutex_t g_Lock = PTHREAD_MUTEX_INITIALIZER;
unsigned char g_Buffer[1 << 20];
size_t g_Used = 0;
int g_File = -1;
pid_t g_Process = 0; // whose file g_File is
bool g_Off = false;  // no trace asked for, or it cannot be written
unsigned g_Threads = 0;
__thread unsigned t_Thread __attribute__((tls_model("initial-exec"))) = 0;

void Flush()
{
    for (size_t done = 0; done < g_Used;)
    {
        const ssize_t n = write(g_File, g_Buffer + done, g_Used - done);
        if (n <= 0)
        {
            g_Off = true;
            break;
        }
        done += size_t(n);
    }
    g_Used = 0;
}

// Opens this process's file; a child of fork starts a file of its own and
// drops what its parent had not written yet.
bool Ready()
{
    if (g_Off)
        return false;
    const pid_t self = getpid();
    if (g_Process == self)
        return true;
    if (g_File >= 0)
        close(g_File);
    g_Used = 0;
    g_Process = self;
    const char* base = getenv("QEL_ALLOC_TRACE");
    char path[4096];
    size_t length = base ? strlen(base) : 0;
    if (base == nullptr || length + 24 > sizeof path)
    {
        g_Off = true;
        return false;
    }
    memcpy(path, base, length);
    path[length++] = '.';
    char digits[16];
    size_t count = 0;
    for (unsigned long value = static_cast<unsigned long>(self); value != 0 || count == 0;
         value /= 10)
        digits[count++] = char('0' + value % 10);
    while (count != 0)
        path[length++] = digits[--count];
    path[length] = 0;
    g_File = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    g_Off = g_File < 0;
    return !g_Off;
}

void Put(uint64_t value)
{
    memcpy(g_Buffer + g_Used, &value, sizeof value);
    g_Used += sizeof value;
}

// Holds the lock from before the call until its record is written.
struct Record
{
    Record() { pthread_mutex_lock(&g_Lock); }
    ~Record() { pthread_mutex_unlock(&g_Lock); }

    void Write(Operation operation, uint64_t a, uint64_t b = 0, uint64_t c = 0, int fields = 1)
    {
        if (!Ready())
            return;
        if (g_Used + 2 + 3 * sizeof(uint64_t) > sizeof g_Buffer)
            Flush();
        if (t_Thread == 0)
            t_Thread = ++g_Threads < 255 ? g_Threads : 255;
        g_Buffer[g_Used++] = operation;
        g_Buffer[g_Used++] = static_cast<unsigned char>(t_Thread);
        Put(a);
        if (fields > 1)
            Put(b);
        if (fields > 2)
            Put(c);
    }
};

uint64_t Word(const void* p)
{
    return reinterpret_cast<uintptr_t>(p);
}

struct Closing
{
    ~Closing()
    {
        pthread_mutex_lock(&g_Lock);
        if (g_File >= 0 && g_Process == getpid())
            Flush();
        pthread_mutex_unlock(&g_Lock);
    }
} g_Closing;

void BeforeFork()
{
    pthread_mutex_lock(&g_Lock);
    if (g_File >= 0 && g_Process == getpid())
        Flush();
}

void AfterFork()
{
    pthread_mutex_unlock(&g_Lock);
}

struct Setup
{
    Setup() { pthread_atfork(&BeforeFork, &AfterFork, &AfterFork); }
} g_Setup;

} // namespace

extern "C"
{

    __attribute__((visibility("default"))) void* malloc(size_t size)
    {
        Record record;
        void* p = __libc_malloc(size);
        if (p)
            record.Write(kMalloc, size, Word(p), 0, 2);
        return p;
    }

    __attribute__((visibility("default"))) void* calloc(size_t count, size_t size)
    {
        Record record;
        void* p = __libc_calloc(count, size);
        if (p)
            record.Write(kCalloc, uint64_t(count) * size, Word(p), 0, 2);
        return p;
    }

    __attribute__((visibility("default"))) void* realloc(void* old, size_t size)
    {
        Record record;
        void* p = __libc_realloc(old, size);
        if (p || size == 0)
            record.Write(kRealloc, Word(old), size, Word(p), 3);
        return p;
    }

    __attribute__((visibility("default"))) void* reallocarray(void* old, size_t count, size_t size)
    {
        if (size != 0 && count > SIZE_MAX / size)
            return nullptr;
        return realloc(old, count * size);
    }

    __attribute__((visibility("default"))) void free(void* p)
    {
        if (p == nullptr)
            return;
        Record record;
        record.Write(kFree, Word(p));
        __libc_free(p);
    }

    __attribute__((visibility("default"))) void* memalign(size_t alignment, size_t size)
    {
        Record record;
        void* p = __libc_memalign(alignment, size);
        if (p)
            record.Write(kAligned, alignment, size, Word(p), 3);
        return p;
    }

    __attribute__((visibility("default"))) int posix_memalign(void** out, size_t alignment,
                                                              size_t size)
    {
        if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0)
            return 22; // EINVAL
        void* p = memalign(alignment, size);
        if (p == nullptr)
            return 12; // ENOMEM
        *out = p;
        return 0;
    }

    __attribute__((visibility("default"))) void* aligned_alloc(size_t alignment, size_t size)
    {
        return memalign(alignment, size);
    }

    __attribute__((visibility("default"))) void* valloc(size_t size)
    {
        return memalign(4096, size);
    }

    __attribute__((visibility("default"))) void* pvalloc(size_t size)
    {
        return memalign(4096, (size + 4095) & ~size_t(4095));
    }

} // extern "C"
