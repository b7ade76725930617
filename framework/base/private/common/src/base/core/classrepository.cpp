// Class descriptors and their repository.
#include <qel/classdescriptor.h>
#include <qel/classrepository.h>
#include <qel/exception.h>
#include <qel/mem.h>

#include "base/core/singleton.h"

namespace qel
{

// ---- descriptors ------------------------------------------------------------

ClassDescriptor::ClassDescriptor(const char* name) : m_Name(name)
{
    ClassRepository::GetSingletonInstance().Register(this);
}

ClassDescriptor::~ClassDescriptor() noexcept(false)
{
    ClassRepository::GetSingletonInstance().Unregister(m_Name);
}

ClassDescriptor* ClassDescriptor::Find(const char* name)
{
    return ClassRepository::GetSingletonInstance().Find(name);
}

// ---- repository -------------------------------------------------------------

std::atomic<ClassRepository*> ClassRepository::ms_SingletonInstance{nullptr};

ClassRepository& ClassRepository::GetSingletonInstance()
{
    ClassRepository* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    return instance ? *instance : *CreateSingletonInstance();
}

ClassRepository::ClassRepository()
{
    // The keys live on the General allocator: making sure it exists now puts
    // its teardown after the repository's.
    Mem::GetGeneralAlloc();
}

ClassRepository* ClassRepository::CreateSingletonInstance()
{
    return Singleton<ClassRepository>::Create(ms_SingletonInstance, "qel::ClassRepository");
}

void ClassRepository::Register(ClassDescriptor* descriptor)
{
    Key key(descriptor->GetClassName());
    if (m_Classes.find(key) != m_Classes.end())
        throw Exception("ClassDescriptor is already registered!");
    m_Classes.emplace(std::move(key), descriptor);
}

void ClassRepository::Unregister(const char* name)
{
    const auto found = m_Classes.find(Key(name));
    if (found == m_Classes.end())
        throw Exception("ClassDescriptor isn't currently registered!");
    m_Classes.erase(found);
}

ClassDescriptor* ClassRepository::Find(const char* name) const
{
    const auto found = m_Classes.find(Key(name));
    return found == m_Classes.end() ? nullptr : found->second;
}

} // namespace qel
