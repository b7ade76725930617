// A resolved path: the virtual text the caller wrote, the native text the
// file manager resolved it to, and the drive mount that serves it.
//
// Both texts live in fixed 256-character buffers: at most 255 characters,
// longer texts are cut silently. Copying a PathObject copies both texts and
// takes one more reference to the mount, which therefore outlives its
// removal from the mount table as long as a path holds it.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/mountpoint.h>
#include <qel/refcounted.h>

namespace qel
{

class QEL_API PathObject
{
public:
    enum
    {
        PathSize = 256
    };

    QEL_ALLOCATION_OPERATORS

    PathObject();
    PathObject(const PathObject& other);
    PathObject& operator=(const PathObject& other);
    ~PathObject();

    const char* GetVirtualPath() const { return m_VirtualPath; }
    const char* GetNativePath() const { return m_NativePath; }
    // Null while unresolved, and for the bare names of a listing.
    const RefPtr<MountPoint>& GetMountPoint() const { return m_MountPoint; }
    // The drive of the mount; null without one.
    DiskDrive* GetDrive() const;

    void SetVirtualPath(const char* path);
    void SetNativePath(const char* path);
    void SetMountPoint(const RefPtr<MountPoint>& mount) { m_MountPoint = mount; }
    // Empties both texts and lets go of the mount.
    void Clear();

private:
    char m_VirtualPath[PathSize];
    char m_NativePath[PathSize];
    RefPtr<MountPoint> m_MountPoint;
};

} // namespace qel
