// Text output devices: the sinks to which the error manager writes every
// report of a category. Reference-counted; a device made with
// deleteWhenUnreferenced destroys itself when its last reference goes.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API TextOutputDevice
{
public:
    QEL_NATIVE_ALLOCATION_OPERATORS

    explicit TextOutputDevice(bool deleteWhenUnreferenced);
    TextOutputDevice(const TextOutputDevice&) = default;
    TextOutputDevice& operator=(const TextOutputDevice&) = default;
    virtual ~TextOutputDevice();

    virtual void Write(const char* text) = 0;

    void Reserve() { ++m_ReferenceCount; }
    // Drops a reference; the last one deletes the device if it was made with
    // deleteWhenUnreferenced.
    void Release();

    u32 GetReferenceCount() const { return m_ReferenceCount; }

private:
    u32 m_ReferenceCount;
    bool m_DeleteWhenUnreferenced;
};

// Discards every text.
class QEL_API TextOutputDeviceNull : public TextOutputDevice
{
public:
    explicit TextOutputDeviceNull(bool deleteWhenUnreferenced = true)
        : TextOutputDevice(deleteWhenUnreferenced)
    {
    }
    void Write(const char* text) override;
};

// Prints every text to the standard output, as it is.
class QEL_API TextOutputDeviceAnsi : public TextOutputDevice
{
public:
    explicit TextOutputDeviceAnsi(bool deleteWhenUnreferenced = true)
        : TextOutputDevice(deleteWhenUnreferenced)
    {
    }
    void Write(const char* text) override;
};

// Sends every text to the debugger through the default DebuggerStream and
// flushes it at once.
class QEL_API TextOutputDeviceDebugger : public TextOutputDevice
{
public:
    explicit TextOutputDeviceDebugger(bool deleteWhenUnreferenced = true)
        : TextOutputDevice(deleteWhenUnreferenced)
    {
    }
    void Write(const char* text) override;
};

} // namespace qel
