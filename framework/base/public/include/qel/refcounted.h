// Intrusive reference counting: RefCounted carries the count, RefPtr holds
// one reference. Disk drives and the file manager's mount points live this
// way, shared by the mount table, resolved paths and exceptions.
//
// The count is atomic: a PathObject copied into an exception may let go of
// its mount on another thread than the file manager's.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class QEL_API RefCounted
{
public:
    RefCounted() : m_RefCount(0) {}
    // A copy is a new object: it starts with no reference of its own.
    RefCounted(const RefCounted&) : m_RefCount(0) {}
    RefCounted& operator=(const RefCounted&) { return *this; }

    void AddRef() { m_RefCount.fetch_add(1, std::memory_order_relaxed); }
    // Deletes the object when the last reference goes.
    void Release();
    s32 GetRefCount() const { return m_RefCount.load(std::memory_order_relaxed); }

    // Counted objects live on Mem's General allocator, like every object
    // of the library.
    QEL_ALLOCATION_OPERATORS

protected:
    virtual ~RefCounted();

private:
    std::atomic<s32> m_RefCount;
};

// Holds one reference to a RefCounted object (or nothing).
template <class T>
class RefPtr
{
public:
    RefPtr() noexcept : m_Object(nullptr) {}
    RefPtr(T* object) : m_Object(object) { Acquire(); }
    RefPtr(const RefPtr& other) : m_Object(other.m_Object) { Acquire(); }
    RefPtr(RefPtr&& other) noexcept : m_Object(other.m_Object) { other.m_Object = nullptr; }
    template <class U>
    RefPtr(const RefPtr<U>& other) : m_Object(other.Get())
    {
        Acquire();
    }
    ~RefPtr() { Reset(); }

    RefPtr& operator=(const RefPtr& other)
    {
        // Take the new reference first: `other` may live inside our object.
        T* object = other.m_Object;
        if (object)
            object->AddRef();
        Reset();
        m_Object = object;
        return *this;
    }
    RefPtr& operator=(RefPtr&& other) noexcept
    {
        if (this != &other)
        {
            T* object = other.m_Object;
            other.m_Object = nullptr;
            Reset();
            m_Object = object;
        }
        return *this;
    }

    // Lets go of the reference held, if any.
    void Reset()
    {
        T* object = m_Object;
        m_Object = nullptr;
        if (object)
            object->Release();
    }

    T* Get() const { return m_Object; }
    T* operator->() const { return m_Object; }
    T& operator*() const { return *m_Object; }
    explicit operator bool() const { return m_Object != nullptr; }

    template <class U>
    bool operator==(const RefPtr<U>& other) const
    {
        return m_Object == other.Get();
    }
    template <class U>
    bool operator!=(const RefPtr<U>& other) const
    {
        return m_Object != other.Get();
    }

private:
    void Acquire()
    {
        if (m_Object)
            m_Object->AddRef();
    }

    T* m_Object;
};

} // namespace qel
