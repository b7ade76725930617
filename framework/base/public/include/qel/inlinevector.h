// A vector that keeps its first N elements inside itself and takes memory
// from the general allocator only beyond them. The parameter lists of parsed
// entries nearly always hold three values or fewer: held this way they cost
// no allocation of their own, which is most of what building a tree costs.
//
// The interface is the part of std::vector's that the library uses. T must
// be nothrow-movable. Growing reports a failed allocation as the general
// allocator does and throws std::bad_alloc, leaving the vector as it was.
#pragma once

#include <qel/generalallocator.h>
#include <qel/types.h>

#include <algorithm>
#include <new>
#include <utility>

namespace qel
{

template <class T, u32 N>
class InlineVector
{
public:
    InlineVector() noexcept : m_Data(Inline()) {}
    InlineVector(const InlineVector&) = delete;
    InlineVector& operator=(const InlineVector&) = delete;
    ~InlineVector()
    {
        clear();
        if (m_Data != Inline())
            GeneralAllocator<T>().deallocate(m_Data, m_Capacity);
    }

    u32 size() const { return m_Size; }
    bool empty() const { return m_Size == 0; }
    T& back() { return m_Data[m_Size - 1]; }
    T& operator[](u32 index) { return m_Data[index]; }
    const T& operator[](u32 index) const { return m_Data[index]; }
    T* begin() { return m_Data; }
    T* end() { return m_Data + m_Size; }
    const T* begin() const { return m_Data; }
    const T* end() const { return m_Data + m_Size; }

    void reserve(u32 capacity)
    {
        if (capacity > m_Capacity)
            Reallocate(capacity);
    }
    template <class... Arguments>
    T& emplace_back(Arguments&&... arguments)
    {
        if (m_Size == m_Capacity)
            Reallocate(m_Capacity * 2);
        T* made = new (m_Data + m_Size) T(std::forward<Arguments>(arguments)...);
        ++m_Size;
        return *made;
    }
    void push_back(T value) { emplace_back(std::move(value)); }
    T* insert(T* at, T value)
    {
        const u32 index = u32(at - m_Data);
        emplace_back(std::move(value));
        std::rotate(m_Data + index, m_Data + m_Size - 1, m_Data + m_Size);
        return m_Data + index;
    }
    void pop_back() { m_Data[--m_Size].~T(); }
    T* erase(T* at)
    {
        std::move(at + 1, end(), at);
        m_Data[--m_Size].~T();
        return at;
    }
    void clear()
    {
        for (u32 i = m_Size; i > 0; --i)
            m_Data[i - 1].~T();
        m_Size = 0;
    }

private:
    T* Inline() { return reinterpret_cast<T*>(m_Storage); }

    void Reallocate(u32 capacity)
    {
        T* data = GeneralAllocator<T>().allocate(capacity);
        for (u32 i = 0; i < m_Size; ++i)
        {
            new (data + i) T(std::move(m_Data[i]));
            m_Data[i].~T();
        }
        if (m_Data != Inline())
            GeneralAllocator<T>().deallocate(m_Data, m_Capacity);
        m_Data = data;
        m_Capacity = capacity;
    }

    T* m_Data;
    u32 m_Size = 0;
    u32 m_Capacity = N;
    alignas(T) unsigned char m_Storage[N * sizeof(T)];
};

} // namespace qel
