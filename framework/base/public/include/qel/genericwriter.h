// Writers over an output stream. Each names the 8-byte header tag of the
// format it produces.
#pragma once

#include <qel/export.h>
#include <qel/genericserializer.h>

namespace qel
{

class QEL_API GenericWriter : public GenericSerializer<OutputStream, Writer>
{
public:
    GenericWriter(OutputStream* stream, Serializer* database)
        : GenericSerializer<OutputStream, Writer>(stream, database)
    {
    }

    // The 8 characters of this writer's header tag (a literal, terminated).
    virtual const char* GetUniqueHeader() const = 0;
};

} // namespace qel
