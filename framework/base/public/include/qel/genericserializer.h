// A serializer bound to a stream, with a database mirror.
//
// Instantiated twice: GenericSerializer<InputStream, Reader> and
// GenericSerializer<OutputStream, Writer>. Neither the stream nor the
// database belongs to the serializer.
//
// The database is a second serializer that receives a copy of every
// operation while script output is on: the binary back-ends call the same
// operation on it, with the same arguments, before they move the value (a
// readable trace of a binary save, with the names given by Identify). With
// script output off it receives nothing, even when one is set.
#pragma once

#include <qel/inputstream.h>
#include <qel/outputstream.h>
#include <qel/reader.h>
#include <qel/writer.h>

namespace qel
{

template <class Stream, class Base>
class GenericSerializer : public Base
{
public:
    GenericSerializer(Stream* stream, Serializer* database) : m_Stream(stream), m_Database(database)
    {
    }

    using Base::Serialize;

    void SetStream(Stream* stream) { m_Stream = stream; }
    Stream* GetStream() const { return m_Stream; }
    void SetDatabase(Serializer* database) { m_Database = database; }
    // The database when `enabled` (callers pass the script-output switch),
    // otherwise null.
    Serializer* GetDatabase(bool enabled) const { return enabled ? m_Database : nullptr; }

protected:
    // Where the current operation is echoed, or null.
    Serializer* Mirror() const { return GetDatabase(this->IsScriptOutputEnabled()); }

    Stream* m_Stream;
    Serializer* m_Database;
};

} // namespace qel
