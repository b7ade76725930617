// Where whole objects go: the decision of an archive (a file per resource,
// for the file archive), reached from a serializer's Load and Save.
//
// Every archive registers with the ResourceManager when it is made and
// withdraws when it dies; the manager calls TakeOwnership(index) on every
// archive when a resource is removed. The base registers before a derived
// archive is built and withdraws after it is gone: when other threads may
// remove resources meanwhile, make and destroy derived archives where no
// removal can run, or withdraw first in the derived destructor
// (ResourceManager::Unregister ignores an archive it does not list).
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class ClassDescriptor;
class Serializer;

class QEL_API Archive
{
public:
    QEL_ALLOCATION_OPERATORS

    Archive();
    // A copy is an archive of its own and registers too.
    Archive(const Archive&);
    Archive& operator=(const Archive&) { return *this; }
    virtual ~Archive();

    virtual void TakeOwnership(u32 index) = 0;
    virtual void GiveOwnership(u32 index) = 0;
    // Reads one whole object from `serializer` and returns it.
    virtual void* Load(Serializer& serializer) = 0;
    // Writes one whole object of the class `cls` describes.
    virtual void Save(Serializer& serializer, ClassDescriptor& cls, void* object) = 0;
};

} // namespace qel
