// Run-time class descriptors: one static object per class gives the class a
// name by which it can be found again, so that an archive or a serializer
// that saved an object with its class name can make and fill a new object of
// that class when it reads it back.
//
// A class's own descriptor derives from ClassDescriptor and supplies:
//   CreateInstance()     a new, default-constructed object of the class
//                        (null for a class that cannot be made alone)
//   SerializeInstance()  the class's fields, read or written through the
//                        serializer, whose direction decides which
// The name is not copied: it must live as long as the descriptor (a literal).
//
// A descriptor registers itself with the ClassRepository when it is made and
// unregisters its name when it dies. Registering a name twice throws
// Exception("ClassDescriptor is already registered!"); unregistering a name
// that is not there throws Exception("ClassDescriptor isn't currently
// registered!"). A copy shares the name without registering it, yet its
// destruction unregisters the name too: a descriptor is meant to be one
// static object per class.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/interface.h>

namespace qel
{

class Serializer;

class QEL_API ClassDescriptor
{
public:
    QEL_ALLOCATION_OPERATORS

    explicit ClassDescriptor(const char* name);
    ClassDescriptor(const ClassDescriptor& other) : m_Name(other.m_Name) {}
    ClassDescriptor& operator=(const ClassDescriptor& other)
    {
        m_Name = other.m_Name;
        return *this;
    }

    virtual Interface* CreateInstance() const = 0;
    virtual ~ClassDescriptor() noexcept(false);
    virtual void SerializeInstance(Interface& instance, Serializer& serializer) const = 0;

    const char* GetClassName() const { return m_Name; }

    // The registered descriptor of that name (compared case-sensitively), or
    // null.
    static ClassDescriptor* Find(const char* name);

private:
    const char* m_Name;
};

} // namespace qel
