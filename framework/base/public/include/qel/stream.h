// The state every stream keeps: the provider it reads from or writes to,
// the one block it holds, and its position.
#pragma once

#include <qel/export.h>
#include <qel/interface.h>
#include <qel/provider.h>
#include <qel/types.h>

namespace qel
{

struct InputStreamBase : Interface
{
};

struct OutputStreamBase : Interface
{
};

template <class Base>
class GenericStream : public Base
{
public:
    // Bytes consumed or produced since the start. GetPosition stays at
    // 0xFFFFFFFF once a stream is 4 GB or more past its start, where
    // GetPosition64 goes on.
    u32 GetPosition() const { return m_Position < 0xFFFFFFFFu ? u32(m_Position) : 0xFFFFFFFFu; }
    u64 GetPosition64() const { return m_Position; }
    Provider* GetProvider() const { return m_Provider; }
    // True while the stream holds a block that it has not given back.
    bool HasPendingBlock() const { return m_Block != nullptr; }

protected:
    explicit GenericStream(Provider* provider = nullptr) : m_Provider(provider) {}

    // Asks the provider for the block at the current position.
    void RequestBlock() { m_Provider->Request(m_Position, m_Block, m_Current, m_End); }
    // Gives the held block back whole.
    void ReturnBlock()
    {
        m_Provider->Return(m_Block);
        m_Block = nullptr;
    }
    u32 Remaining() const { return static_cast<u32>(m_End - m_Current); }

    Provider* m_Provider;
    unsigned char* m_Block = nullptr;
    unsigned char* m_Current = nullptr;
    unsigned char* m_End = nullptr;
    u64 m_Position = 0;
};

} // namespace qel
