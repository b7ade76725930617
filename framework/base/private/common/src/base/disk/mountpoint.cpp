#include <qel/mountpoint.h>

namespace qel
{

MountPoint::MountPoint(const char* name, s32 kind) : m_Name(name), m_Kind(kind) {}

MountPoint::~MountPoint() = default;

DriveMount::DriveMount(const char* name, const RefPtr<DiskDrive>& drive)
    : MountPoint(name, DriveKind), m_Drive(drive)
{
}

AliasMount::AliasMount(const char* name, const char* target, const char* nativeBase,
                       const RefPtr<DriveMount>& driveMount)
    : MountPoint(name, AliasKind), m_Target(target), m_NativeBase(nativeBase),
      m_DriveMount(driveMount)
{
}

} // namespace qel
