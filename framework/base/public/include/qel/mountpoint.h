// The entries of the file manager's mount table, also named
// FileManager::MountPoint, FileManager::DriveMount and FileManager::AliasMount.
// A drive mount serves paths under its name from a disk drive; an alias
// stands for another virtual path, resolved once when it was mounted.
// Mounts are reference counted: a resolved PathObject keeps its mount alive
// after it leaves the table.
#pragma once

#include <qel/diskdrive.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/refcounted.h>
#include <qel/types.h>

#include <string>

namespace qel
{

// A text on Mem's General allocator.
typedef std::basic_string<char, std::char_traits<char>, GeneralAllocator<char>> MountText;

class DriveMount;

class QEL_API MountPoint : public RefCounted
{
public:
    enum Kind
    {
        AliasKind = 0,
        DriveKind = 1,
    };

    // With its leading and trailing '/', for example /disks/.
    const char* GetName() const { return m_Name.c_str(); }
    u32 GetNameLength() const { return u32(m_Name.size()); }
    s32 GetKind() const { return m_Kind; }
    // The drive mount that serves paths under this one: itself, or the
    // one an alias refers to.
    virtual DriveMount* GetDriveMount() = 0;

protected:
    MountPoint(const char* name, s32 kind);
    ~MountPoint() override;

private:
    MountText m_Name;
    s32 m_Kind;
};

// The native path of a file under it is the virtual path less the name.
class QEL_API DriveMount : public MountPoint
{
public:
    DriveMount(const char* name, const RefPtr<DiskDrive>& drive);
    DiskDrive* GetDrive() const { return m_Drive.Get(); }
    DriveMount* GetDriveMount() override { return this; }

private:
    RefPtr<DiskDrive> m_Drive;
};

// The native path of a file under it is the native base followed by the
// virtual path less the name.
class QEL_API AliasMount : public MountPoint
{
public:
    AliasMount(const char* name, const char* target, const char* nativeBase,
               const RefPtr<DriveMount>& driveMount);
    // The virtual path it was mounted on, and what that resolved to.
    const char* GetTarget() const { return m_Target.c_str(); }
    const char* GetNativeBase() const { return m_NativeBase.c_str(); }
    DriveMount* GetDriveMount() override { return m_DriveMount.Get(); }

private:
    MountText m_Target;
    MountText m_NativeBase;
    RefPtr<DriveMount> m_DriveMount;
};

} // namespace qel
