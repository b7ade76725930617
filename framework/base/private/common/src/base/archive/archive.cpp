#include <qel/archive.h>
#include <qel/resourcemanager.h>

namespace qel
{

Archive::Archive()
{
    ResourceManager::Register(this);
}

Archive::Archive(const Archive&)
{
    ResourceManager::Register(this);
}

Archive::~Archive()
{
    ResourceManager::Unregister(this);
}

} // namespace qel
