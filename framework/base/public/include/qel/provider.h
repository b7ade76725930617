// Providers: where streams get their blocks of bytes.
//
// A stream asks its provider for the block that holds a stream position and
// gives each block back when it is done with it:
//   Request(position, block, current, end): `block` is the handle to give
//       back, `current` is where the byte at `position` lies, `end` is one
//       past the last usable byte; current == end means end of data.
//   Return(block, end): gives a block back of which the bytes from its start
//       up to `end` were filled (output providers write them out).
//   Return(block): gives a block back whole (output providers count the
//       whole block as filled).
//   ReadDirect, WriteDirect: optional shortcuts past the blocks.
#pragma once

#include <qel/export.h>
#include <qel/interface.h>
#include <qel/types.h>

namespace qel
{

class QEL_API Provider : public Interface
{
public:
    Provider() : m_Open(false) {}
    ~Provider() override;

    virtual void Request(u64 position, unsigned char*& block, unsigned char*& current,
                         unsigned char*& end) = 0;
    virtual void Return(void* block, void* end);
    virtual void Return(void* block);
    // Copies `count` bytes from `position` straight into `buffer`, bypassing
    // the blocks, when the provider can do that with less work (a file, for
    // reads of a whole block or more). Returns false when it cannot; `read`
    // is then untouched.
    virtual bool ReadDirect(u64 position, void* buffer, u32 count, u32& read);
    // Takes up to `count` bytes for `position` straight from `data`, bypassing
    // the blocks, when the provider can do that with less work (a growing
    // memory buffer); `written` says how many it took, and the stream sends
    // the rest through blocks. Only asked while the stream holds no block.
    // Returns false when it cannot; `written` is then untouched.
    virtual bool WriteDirect(u64 position, const void* data, u32 count, u32& written);

    // True once the provider has a source or a sink.
    bool IsOpen() const { return m_Open; }

protected:
    bool m_Open;
};

} // namespace qel
