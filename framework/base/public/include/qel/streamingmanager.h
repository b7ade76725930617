// The streaming manager: the list of streaming requests, questions about
// all of them, and a worker thread that Execute wakes.
//
// The reading itself happens in each request's Read, called by its owner.
// The worker, started through the thread manager at the highest priority,
// goes over the list once per Execute: under the manager's lock it visits
// every request that is running, under that request's lock, and moves no
// data. Locks are taken in the order manager, request, buffer.
//
// The manager owns the requests still listed when it dies: its destructor
// stops the worker, then deletes them.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/event.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <atomic>
#include <list>

namespace qel
{

class StreamingRequest;

class QEL_API StreamingManager
{
public:
    QEL_ALLOCATION_OPERATORS

    static StreamingManager& GetSingletonInstance() { return *GetSingletonInstancePointer(); }
    // The instance, created on first use; null after the exit-time teardown.
    static StreamingManager* GetSingletonInstancePointer()
    {
        StreamingManager* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? instance : CreateSingletonInstance();
    }
    static StreamingManager& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

    // Appends to the list. A null request or one listed already is a usage
    // fault and is not added.
    void Add(StreamingRequest* request);
    // Takes the request off the list (nothing when it is not there); the
    // caller owns it again.
    void Remove(StreamingRequest* request);
    u32 Count();
    // Stores the time budget and wakes the worker for one pass. The budget
    // is kept for whoever asks; the worker does not consume it.
    void Execute(u32 budget);
    u32 GetBudget();
    // The sum of the data rates of the listed requests: the rate the disk
    // must sustain for all of them (saturates at 0xFFFFFFFF).
    u32 HighestDataRate();
    // The sum of what the requests' rings hold (saturates at 0xFFFFFFFF).
    u32 TotalBytesAvailable();
    // How many passes the worker has made over the list.
    u32 GetWorkerPasses() const { return m_Passes.load(std::memory_order_acquire); }
    // The worker's thread id (ThreadManager::InvalidThreadId when it could
    // not be started).
    u32 GetWorkerThreadId() const { return m_WorkerThread; }

private:
    template <class T, class Storage>
    friend class Singleton;
    friend class StreamingRequest;

    typedef std::list<StreamingRequest*, GeneralAllocator<StreamingRequest*>> RequestList;

    StreamingManager();
    ~StreamingManager();
    StreamingManager(const StreamingManager&) = delete;
    StreamingManager& operator=(const StreamingManager&) = delete;

    static StreamingManager* CreateSingletonInstance();
    static void WorkerRoutine(void* manager);
    void Work();
    void VisitRequests();

    RequestList m_Requests;
    // Auto-reset: each Pulse lets the worker through once.
    Event m_WakeUp;
    std::atomic<bool> m_OneShot;
    u32 m_WorkerThread;
    std::atomic<bool> m_Quit;
    u32 m_Budget;
    CriticalSection m_Lock;
    std::atomic<u32> m_Passes;

    static std::atomic<StreamingManager*> ms_SingletonInstance;
};

} // namespace qel
