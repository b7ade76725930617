// A handle to one text of the parsed string pool (null for none). Building
// one from a text interns it with a reference, a copy takes one more, a move
// hands the reference on, and Release or the destructor drops it. A copy
// throws std::bad_alloc, nothing changed, when the pool finds no memory to
// count the reference (reported by the allocator).
#pragma once

#include <qel/export.h>
#include <qel/parsedstringpool.h>

#include <cstring>

namespace qel
{

class ParsedString
{
public:
    ParsedString() = default;
    explicit ParsedString(const char* text) { Allocate(text); }
    ParsedString(const ParsedString& other) : m_Text(other.m_Text)
    {
        if (m_Text)
            ParsedStringPool::AddHeld(m_Text);
    }
    ParsedString(ParsedString&& other) noexcept : m_Text(other.m_Text) { other.m_Text = nullptr; }
    ParsedString& operator=(ParsedString&& other) noexcept
    {
        if (this != &other)
        {
            Release();
            m_Text = other.m_Text;
            other.m_Text = nullptr;
        }
        return *this;
    }
    ParsedString& operator=(const ParsedString& other)
    {
        if (other.m_Text)
            ParsedStringPool::AddHeld(other.m_Text);
        const char* held = m_Text;
        m_Text = other.m_Text;
        if (held) // after taking the new one: it may be the text held
            ParsedStringPool::ReleaseHeld(held);
        return *this;
    }
    ~ParsedString() { Release(); }

    // Takes over a reference the caller holds on a pooled text (one handed
    // out by ParsedStringPool::Create, or null) instead of taking a new one.
    // The pointer must be the one Create returned: the handle drops the
    // reference on it without looking the text up.
    static ParsedString Adopt(const char* pooled)
    {
        ParsedString string;
        string.m_Text = pooled;
        return string;
    }

    const char* Get() const { return m_Text; }
    void Set(const char* text)
    {
        const char* held = m_Text;
        m_Text = nullptr;
        Allocate(text);
        if (held) // after taking the new one: `text` may be the text held
            ParsedStringPool::ReleaseHeld(held);
    }
    void Release()
    {
        if (m_Text)
            ParsedStringPool::ReleaseHeld(m_Text);
        m_Text = nullptr;
    }
    // Compares the texts (a null text first).
    bool operator<(const ParsedString& other) const
    {
        if (!m_Text || !other.m_Text)
            return !m_Text && other.m_Text;
        return std::strcmp(m_Text, other.m_Text) < 0;
    }

private:
    void Allocate(const char* text)
    {
        m_Text = text ? ParsedStringPool::Create(text, true) : nullptr;
    }

    const char* m_Text = nullptr;
};

} // namespace qel
