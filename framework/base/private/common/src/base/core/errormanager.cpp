#include <qel/errormanager.h>

#include <qel/host.h>
#include <qel/report.h>

#include "base/core/singleton.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace qel
{

std::atomic<ErrorManager*> ErrorManager::ms_SingletonInstance{nullptr};

namespace
{

// Choice words of the reports.
const u32 kAssertChoice = 0x4000010D;    // Abort/Retry/Ignore, exclamation, Ignore default
const u32 kErrorChoice = 0x20000860;     // Yes/No, stop icon, No default
const u32 kShowAgainChoice = 0x10000060; // Yes/No, Yes default

// Appends `piece` to `text` (holding `length` characters), cut so that the
// whole stays below `size` characters.
void Append(char* text, size_t& length, size_t size, const char* piece)
{
    while (*piece != '\0' && length + 1 < size)
        text[length++] = *piece++;
    text[length] = '\0';
}

} // namespace

ErrorManager& ErrorManager::GetSingletonInstance()
{
    return *GetSingletonInstancePointer();
}

ErrorManager* ErrorManager::GetSingletonInstancePointer()
{
    ErrorManager* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    return instance ? instance : CreateSingletonInstance();
}

ErrorManager* ErrorManager::CreateSingletonInstance()
{
    return Singleton<ErrorManager>::Create(ms_SingletonInstance, "ErrorManager");
}

ErrorManager::ErrorManager()
    : m_Message(), m_Categories(), m_NumberOfCategories(0), m_Displaying(false),
      m_DefaultDevice(false)
{
    RegisterCategory(NoParent, "Root");
    RegisterCategory(RootCategory, "Default");
    RegisterCategory(RootCategory, "Base");
}

ErrorManager::~ErrorManager()
{
    for (CategoryRecord& record : m_Categories)
        if (record.inUse && record.device)
            record.device->Release();
    m_DefaultDevice.Release();
}

// ---- categories and flags ---------------------------------------------------

u32 ErrorManager::RegisterCategory(u32 parent, const char*)
{
    u32 id = 0;
    while (id < MaxCategories && m_Categories[id].inUse)
        ++id;
    if (id == MaxCategories)
        return DefaultCategory;

    ++m_NumberOfCategories;
    CategoryRecord& record = m_Categories[id];
    record.parent = parent;
    record.userFlags = 0;
    record.systemFlags = 0;
    if (record.device)
        record.device->Release();
    record.device = &m_DefaultDevice;
    m_DefaultDevice.Reserve();
    record.systemFlags |= 0x9;
    record.inUse = true;
    return id;
}

void ErrorManager::UnRegisterCategory(u32 id)
{
    if (id >= MaxCategories)
        return;
    --m_NumberOfCategories;
    CategoryRecord& record = m_Categories[id];
    if (record.device)
        record.device->Release();
    record = CategoryRecord();
}

void ErrorManager::RegisterOutputDevice(u32 category, TextOutputDevice* device)
{
    if (category >= MaxCategories || device == nullptr)
        return;
    CategoryRecord& record = m_Categories[category];
    device->Reserve(); // first, in case it is the device already there
    if (record.device)
        record.device->Release();
    record.device = device;
}

u32 ErrorManager::RegisterUserFlag(u32 category, const char*)
{
    return category < MaxCategories ? m_Categories[category].numberOfUserFlags++ : 0;
}

u32 ErrorManager::GetNumberOfUserFlags(u32 category) const
{
    return category < MaxCategories ? m_Categories[category].numberOfUserFlags : 0;
}

bool ErrorManager::GetUserFlag(u32 category, u32 mask) const
{
    return category < MaxCategories && (m_Categories[category].userFlags & mask) != 0;
}

void ErrorManager::SetUserFlag(u32 category, u32 mask, bool on)
{
    if (category < MaxCategories)
        m_Categories[category].userFlags =
            on ? m_Categories[category].userFlags | mask : m_Categories[category].userFlags & ~mask;
}

bool ErrorManager::GetSystemFlag(u32 category, u32 mask) const
{
    return category < MaxCategories && (m_Categories[category].systemFlags & mask) != 0;
}

void ErrorManager::SetSystemFlag(u32 category, u32 mask, bool on)
{
    if (category < MaxCategories)
        m_Categories[category].systemFlags = on ? m_Categories[category].systemFlags | mask
                                                : m_Categories[category].systemFlags & ~mask;
}

// ---- formatting -------------------------------------------------------------

char* ErrorManager::FormatMessage(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* message = FormatMessageV(format, arguments);
    va_end(arguments);
    return message;
}

char* ErrorManager::FormatMessageV(const char* format, va_list arguments)
{
    if (format == m_Message)
        return m_Message; // already formatted by the caller
    m_Message[0] = '\0';
    if (format != nullptr)
        std::vsnprintf(m_Message, MessageSize, format, arguments);
    m_Message[MessageSize - 1] = '\0';
    return m_Message;
}

// ---- display ----------------------------------------------------------------

bool ErrorManager::BeginDisplay(u32& category)
{
    m_Mutex.Enter();
    if (m_Displaying)
    {
        // A report raised while a report is shown (from a device or a
        // question of this same thread).
        Host::Get().BreakIntoDebugger();
        m_Mutex.Leave();
        return false;
    }
    m_Displaying = true;
    if (category >= m_NumberOfCategories)
        category = DefaultCategory;
    return true;
}

void ErrorManager::EndDisplay()
{
    m_Displaying = false;
    m_Mutex.Leave();
}

void ErrorManager::WriteToDevice(u32 category, const char* text)
{
    if (TextOutputDevice* device = m_Categories[category].device)
        device->Write(text);
}

QueryDevice::QueryAnswer ErrorManager::AskAssertOrWarning(QueryUserFlag& flag, const char* caption,
                                                          const char* text,
                                                          const char* showAgainQuestion,
                                                          bool answerShowAgain)
{
    if (QueryDevice::IsSilent() || flag == 1)
        return QueryDevice::ExtractDefaultChoice(kAssertChoice);
    const QueryDevice::QueryAnswer answer = QueryDevice::QueryUser(kAssertChoice, caption, text);
    switch (answer)
    {
    case QueryDevice::Abort:
        Host::Get().ExitProcess();
        return answer;
    case QueryDevice::Ignore:
    {
        const QueryDevice::QueryAnswer again =
            QueryDevice::QueryUser(kShowAgainChoice, "Warning", showAgainQuestion);
        if (again == QueryDevice::No)
            flag = 1;
        return answerShowAgain ? again : answer;
    }
    case QueryDevice::Retry:
        return answer;
    default:
        Host::Get().BreakIntoDebugger();
        return answer;
    }
}

QueryDevice::QueryAnswer ErrorManager::DisplayAssert(QueryUserFlag& flag, AssertionTypes type,
                                                     u32 category, const char* condition,
                                                     const char* file, u32 line)
{
    if (!BeginDisplay(category))
        return QueryDevice::Ignore;
    if (QueryDevice::IsSilent() && m_Categories[category].device == nullptr)
    {
        EndDisplay();
        return QueryDevice::ExtractDefaultChoice(kAssertChoice);
    }

    char text[MessageSize];
    std::snprintf(text, sizeof text,
                  "\nAssert Failed\n\nCondition Failed: %s\nAssert Type: %s\n\nFilename: "
                  "%s\nLineNo: %u\n\nPress 'Retry' to debug\n",
                  condition, type == InternalAssert ? "Internal Assert" : "Usage Assert", file,
                  unsigned(line));
    WriteToDevice(category, text);

    const QueryDevice::QueryAnswer result =
        AskAssertOrWarning(flag, "Assert Failed", text,
                           "Do you want to see again any new occurences of this assert ?", false);
    EndDisplay();
    return result;
}

QueryDevice::QueryAnswer ErrorManager::DisplayWarning(u32 category, QueryUserFlag& flag,
                                                      const char* message, const char* file,
                                                      u32 line)
{
    if (!BeginDisplay(category))
        return QueryDevice::Ignore;
    if (QueryDevice::IsSilent() && m_Categories[category].device == nullptr)
    {
        EndDisplay();
        return QueryDevice::ExtractDefaultChoice(kAssertChoice);
    }

    char number[33];
    std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(line));
    char text[MessageSize];
    size_t length = 0;
    text[0] = '\0';
    for (const char* piece :
         {message ? message : "", "\n\nFilename: ", file ? file : "",
          "\nLineNo: ", static_cast<const char*>(number), "\n\nPress 'Retry' to debug\n"})
        Append(text, length, sizeof text, piece);
    WriteToDevice(category, text);

    const QueryDevice::QueryAnswer result = AskAssertOrWarning(
        flag, "Warning", text, "Do you want to see again any new occurence of this warning ?",
        true); // unlike an assert, answers with the second answer
    EndDisplay();
    return result;
}

QueryDevice::QueryAnswer ErrorManager::DisplayError(u32 category, const char* message,
                                                    const char* file, u32 line)
{
    // A re-entrant error answers Ignore, not its own default, so that its
    // report site goes on to end the process.
    if (!BeginDisplay(category))
        return QueryDevice::Ignore;
    if (QueryDevice::IsSilent() && m_Categories[category].device == nullptr)
    {
        EndDisplay();
        return QueryDevice::ExtractDefaultChoice(kErrorChoice);
    }

    char text[MessageSize];
    std::snprintf(text, sizeof text,
                  "\nFatal Error\n\nMessage: %s\n\nFilename: %s\nLineNo: %u\n\nDo you want to "
                  "debug ?\n",
                  message ? message : "None", file, unsigned(line));
    WriteToDevice(category, text);

    QueryDevice::QueryAnswer result = QueryDevice::ExtractDefaultChoice(kErrorChoice);
    if (!QueryDevice::IsSilent())
    {
        result = QueryDevice::QueryUser(kErrorChoice, "Error", text);
        switch (result)
        {
        case QueryDevice::Yes:
            break;
        case QueryDevice::No:
            Host::Get().ExitProcess();
            break;
        default:
            Host::Get().BreakIntoDebugger();
            break;
        }
    }
    EndDisplay();
    return result;
}

void ErrorManager::DisplayTrace(u32 category, const char* text)
{
    if (!BeginDisplay(category))
        return;
    if (text != nullptr)
        WriteToDevice(category, text);
    EndDisplay();
}

void ErrorManager::ExitProcess()
{
    Host::Get().ExitProcess();
}

u32 MEM_InitErrorCategory(u32 parent, const char* name)
{
    ErrorManager& manager = ErrorManager::GetSingletonInstance();
    const u32 id = manager.RegisterCategory(parent, name);
    for (int i = 0; i < 3; ++i)
        manager.RegisterUserFlag(id, name);
    manager.SetUserFlag(id, 0x1, true);
    return id;
}

} // namespace qel
