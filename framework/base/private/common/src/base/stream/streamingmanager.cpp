#include <qel/streamingmanager.h>

#include <qel/errormanager.h>
#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/report.h>
#include <qel/streamingbuffer.h>
#include <qel/streamingrequest.h>
#include <qel/threadmanager.h>

#include "base/core/singleton.h"

#include <algorithm>

namespace qel
{

std::atomic<StreamingManager*> StreamingManager::ms_SingletonInstance{nullptr};

namespace
{

typedef ScopedLock<CriticalSection> Locked;

u32 SaturatingAdd(u32 a, u32 b)
{
    return a > 0xFFFFFFFFu - b ? 0xFFFFFFFFu : a + b;
}

} // namespace

StreamingManager* StreamingManager::CreateSingletonInstance()
{
    return Singleton<StreamingManager>::Create(ms_SingletonInstance, "StreamingManager");
}

StreamingManager::StreamingManager()
    : m_WakeUp(false), m_OneShot(true), m_WorkerThread(ThreadManager::InvalidThreadId),
      m_Quit(false), m_Budget(0), m_Passes(0)
{
    // The list's memory, and the files of requests left at exit, need the
    // General allocator and the file manager: made first, they die last.
    Mem::GetGeneralAlloc();
    FileManager::GetSingletonInstance();
    m_WorkerThread = ThreadManager::Create(&WorkerRoutine, this, 0, 2, false);
    if (m_WorkerThread == ThreadManager::InvalidThreadId)
        QEL_WARNING(ErrorManager::BaseCategory, "The streaming worker thread could not be started");
}

StreamingManager::~StreamingManager()
{
    m_Quit.store(true, std::memory_order_release);
    m_OneShot.store(false, std::memory_order_release);
    m_WakeUp.Pulse();
    if (m_WorkerThread != ThreadManager::InvalidThreadId)
        ThreadManager::Wait(s32(m_WorkerThread));

    RequestList left;
    {
        Locked locked(m_Lock);
        left.swap(m_Requests);
    }
    for (StreamingRequest* request : left)
        delete request;
}

void StreamingManager::WorkerRoutine(void* manager)
{
    static_cast<StreamingManager*>(manager)->Work();
}

void StreamingManager::Work()
{
    while (!m_Quit.load(std::memory_order_acquire))
    {
        m_WakeUp.Wait();
        // Without one-shot mode the worker keeps itself awake.
        if (!m_OneShot.load(std::memory_order_acquire))
            m_WakeUp.Pulse();
        VisitRequests();
    }
}

void StreamingManager::VisitRequests()
{
    Locked locked(m_Lock);
    for (StreamingRequest* request : m_Requests)
        request->Visit();
    m_Passes.fetch_add(1, std::memory_order_acq_rel);
}

void StreamingManager::Add(StreamingRequest* request)
{
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, request != nullptr);
    if (request == nullptr)
        return;
    QEL_ASSERT(ErrorManager::BaseCategory, request->m_Marker == StreamingRequest::Marker);
    Locked locked(m_Lock);
    const bool listed =
        std::find(m_Requests.begin(), m_Requests.end(), request) != m_Requests.end();
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, !listed);
    if (!listed)
        m_Requests.push_back(request);
}

void StreamingManager::Remove(StreamingRequest* request)
{
    Locked locked(m_Lock);
    m_Requests.remove(request);
}

u32 StreamingManager::Count()
{
    Locked locked(m_Lock);
    return u32(m_Requests.size());
}

void StreamingManager::Execute(u32 budget)
{
    Locked locked(m_Lock);
    m_Budget = budget;
    m_WakeUp.Pulse();
}

u32 StreamingManager::GetBudget()
{
    Locked locked(m_Lock);
    return m_Budget;
}

u32 StreamingManager::HighestDataRate()
{
    Locked locked(m_Lock);
    u32 sum = 0;
    for (StreamingRequest* request : m_Requests)
        sum = SaturatingAdd(sum, request->Datarate());
    return sum;
}

u32 StreamingManager::TotalBytesAvailable()
{
    Locked locked(m_Lock);
    u32 sum = 0;
    for (StreamingRequest* request : m_Requests)
        sum = SaturatingAdd(sum, request->DataAvailable()); // the request's lock, then its ring's
    return sum;
}

} // namespace qel
