// Readers over an input stream, and the choice of reader from a stream's
// header.
//
// Every binary stream begins with an 8-byte ASCII tag, with no terminating
// zero: "qel/b0-l" (little-endian, BinaryWriter) or "qel/b0-b" (big-endian,
// BinarySwapperWriter). "qel/text" marks the text writer's output, which no
// reader takes.
#pragma once

#include <qel/export.h>
#include <qel/genericserializer.h>

namespace qel
{

class QEL_API GenericReader : public GenericSerializer<InputStream, Reader>
{
public:
    GenericReader(InputStream* stream, Serializer* database)
        : GenericSerializer<InputStream, Reader>(stream, database)
    {
    }

    // Reads the 8-byte header at the stream's position and returns a new
    // reader for its format: a BinaryReader for "qel/b0-l", a
    // BinarySwapperReader for "qel/b0-b". Throws UnknownFormat for anything
    // else, a stream shorter than 8 bytes included; the bytes read stay
    // consumed. The reader has version 0 and no archive, and belongs to the
    // caller, who deletes it (the stream stays open).
    static Reader* Create(InputStream* stream, Serializer* database);
};

} // namespace qel
