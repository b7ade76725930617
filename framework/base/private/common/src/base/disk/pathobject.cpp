#include <qel/pathobject.h>

#include <cstring>

namespace qel
{

namespace
{

void CopyPath(char* dest, const char* source)
{
    std::size_t length = source ? std::strlen(source) : 0;
    if (length > PathObject::PathSize - 1)
        length = PathObject::PathSize - 1;
    std::memmove(dest, source ? source : "", length);
    dest[length] = '\0';
}

} // namespace

PathObject::PathObject()
{
    m_VirtualPath[0] = '\0';
    m_NativePath[0] = '\0';
}

PathObject::PathObject(const PathObject& other) : m_MountPoint(other.m_MountPoint)
{
    std::memcpy(m_VirtualPath, other.m_VirtualPath, PathSize);
    std::memcpy(m_NativePath, other.m_NativePath, PathSize);
}

PathObject& PathObject::operator=(const PathObject& other)
{
    if (this != &other)
    {
        std::memcpy(m_VirtualPath, other.m_VirtualPath, PathSize);
        std::memcpy(m_NativePath, other.m_NativePath, PathSize);
        m_MountPoint = other.m_MountPoint;
    }
    return *this;
}

PathObject::~PathObject() = default;

DiskDrive* PathObject::GetDrive() const
{
    if (!m_MountPoint)
        return nullptr;
    DriveMount* mount = m_MountPoint->GetDriveMount();
    return mount ? mount->GetDrive() : nullptr;
}

void PathObject::SetVirtualPath(const char* path)
{
    CopyPath(m_VirtualPath, path);
}

void PathObject::SetNativePath(const char* path)
{
    CopyPath(m_NativePath, path);
}

void PathObject::Clear()
{
    m_VirtualPath[0] = '\0';
    m_NativePath[0] = '\0';
    m_MountPoint.Reset();
}

} // namespace qel
