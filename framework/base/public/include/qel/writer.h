// The writing side of the serializer interface.
#pragma once

#include <qel/export.h>
#include <qel/serializer.h>

namespace qel
{

class QEL_API Writer : public Serializer
{
public:
    bool IsReading() const override;
    bool IsWriting() const override;
};

} // namespace qel
