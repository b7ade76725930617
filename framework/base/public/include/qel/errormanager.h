// The error manager: every assert, warning, fatal error and trace of the
// library goes through it.
//
// Each report belongs to an error category (at most 64; 0 "Root",
// 1 "Default" and 2 "Base" are built in). The report's text is written to
// the category's text output device and then, unless the query device is
// silent or the call site asked not to be shown again, put to the user.
// Report sites use the macros of qel/report.h, which follow the calling
// convention: hold GetMutex() while formatting and displaying, break into the
// debugger on Retry, end the process when a fatal error is not answered Yes.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/querydevice.h>
#include <qel/textoutputdevice.h>
#include <qel/types.h>

#include <atomic>
#include <cstdarg>

#if defined(__GNUC__)
#define QEL_PRINTF_FORMAT(formatIndex, firstArgument)                                              \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define QEL_PRINTF_FORMAT(formatIndex, firstArgument)
#endif

namespace qel
{

class QEL_API ErrorManager
{
public:
    QEL_ALLOCATION_OPERATORS

    enum
    {
        MaxCategories = 64,
        MessageSize = 2048,
    };

    enum Category : u32
    {
        RootCategory = 0,
        DefaultCategory = 1,
        BaseCategory = 2,
        NoParent = 0xFFFFFFFFu,
    };

    // 0 is an internal assert, anything else a usage assert.
    enum AssertionTypes
    {
        InternalAssert = 0,
        UsageAssert = 1,
    };

    // One per report site (a static in the caller, initially 0): 0 asks the
    // user, 1 means "don't show this one again".
    typedef u32 QueryUserFlag;

    static ErrorManager& GetSingletonInstance();
    // The instance, created on first use; null after the exit-time teardown.
    static ErrorManager* GetSingletonInstancePointer();
    static ErrorManager& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

    // Categories. A full table gives the newcomer id 1 ("Default"); names
    // are accepted and not kept.
    u32 RegisterCategory(u32 parent, const char* name);
    void UnRegisterCategory(u32 id);
    u32 GetNumberOfCategories() const { return m_NumberOfCategories; }

    // Replaces the category's device; the new one is reserved, the old one
    // released.
    void RegisterOutputDevice(u32 category, TextOutputDevice* device);
    TextOutputDevice* GetDefaultDevice() { return &m_DefaultDevice; }

    u32 RegisterUserFlag(u32 category, const char* name);
    u32 GetNumberOfUserFlags(u32 category) const;
    bool GetUserFlag(u32 category, u32 mask) const;
    void SetUserFlag(u32 category, u32 mask, bool on);
    bool GetSystemFlag(u32 category, u32 mask) const;
    void SetSystemFlag(u32 category, u32 mask, bool on);

    // Formats into the shared message buffer (at most 2047 characters) and
    // returns it. A null format empties the buffer; the buffer itself as the
    // format returns it untouched.
    char* FormatMessage(const char* format, ...) QEL_PRINTF_FORMAT(2, 3);
    char* FormatMessageV(const char* format, va_list arguments);
    char* GetBuffer() { return m_Message; }

    QueryDevice::QueryAnswer DisplayAssert(QueryUserFlag& flag, AssertionTypes type, u32 category,
                                           const char* condition, const char* file, u32 line);
    QueryDevice::QueryAnswer DisplayWarning(u32 category, QueryUserFlag& flag, const char* message,
                                            const char* file, u32 line);
    QueryDevice::QueryAnswer DisplayError(u32 category, const char* message, const char* file,
                                          u32 line);
    void DisplayTrace(u32 category, const char* text);

    CriticalSection& GetMutex() { return m_Mutex; }
    // Ends the process through the host (abort() by default).
    void ExitProcess();

private:
    template <class T, class Storage>
    friend class Singleton;

    struct CategoryRecord
    {
        u32 userFlags;
        u32 systemFlags;
        u32 parent;
        TextOutputDevice* device;
        u32 numberOfUserFlags;
        bool inUse;
    };

    ErrorManager();
    ~ErrorManager();
    ErrorManager(const ErrorManager&) = delete;
    ErrorManager& operator=(const ErrorManager&) = delete;

    // The common start of the display operations. Returns false when the
    // report must end at once; `category` is replaced by 1 when out of range.
    bool BeginDisplay(u32& category);
    void EndDisplay();
    void WriteToDevice(u32 category, const char* text);
    // Asks an assert's or a warning's question and, after Ignore, whether to
    // show it again; returns the answer, or the second one after Ignore when
    // `answerShowAgain` is set.
    QueryDevice::QueryAnswer AskAssertOrWarning(QueryUserFlag& flag, const char* caption,
                                                const char* text, const char* showAgainQuestion,
                                                bool answerShowAgain);

    char m_Message[MessageSize];
    CategoryRecord m_Categories[MaxCategories];
    u32 m_NumberOfCategories;
    CriticalSection m_Mutex;
    bool m_Displaying;
    TextOutputDeviceDebugger m_DefaultDevice;

    static ErrorManager* CreateSingletonInstance();

    static std::atomic<ErrorManager*> ms_SingletonInstance;
};

// Registers `name` under `parent` with three user flags and user flag bit 0x1
// set; returns its id. The memory subsystem's categories are made this way.
QEL_API u32 MEM_InitErrorCategory(u32 parent, const char* name);

} // namespace qel
