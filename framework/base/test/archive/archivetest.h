// Helpers of the archive tests: the text of the error a call raises, and a
// resource of a value and two links to others, saved by its descriptor.
#pragma once

#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/genericreader.h>
#include <qel/interface.h>
#include <qel/serializer.h>

#include <string>

namespace archivetest
{

template <class Call>
std::string ReasonOf(Call call)
{
    try
    {
        call();
    }
    catch (const qel::Exception& e)
    {
        return e.GetReason();
    }
    catch (const qel::UnknownFormat&)
    {
        return "UnknownFormat";
    }
    return "no exception";
}

struct Item : qel::Interface
{
    qel::u32 value = 0;
    Item* first = nullptr;
    Item* second = nullptr;
};

class ItemDescriptor : public qel::ClassDescriptor
{
public:
    explicit ItemDescriptor(const char* name) : ClassDescriptor(name) {}
    qel::Interface* CreateInstance() const override { return new Item; }
    void SerializeInstance(qel::Interface& instance, qel::Serializer& s) const override
    {
        Item& item = static_cast<Item&>(instance);
        s.Identify("Value");
        s.Serialize(item.value);
        for (Item** link : {&item.first, &item.second})
        {
            bool has = *link != nullptr;
            s.Identify("Link");
            s.Serialize(has);
            if (!has)
                continue;
            if (s.IsWriting())
                s.Save(const_cast<ItemDescriptor&>(*this), static_cast<qel::Interface*>(*link));
            else
                *link = static_cast<Item*>(static_cast<qel::Interface*>(s.Load()));
        }
    }
};

inline ItemDescriptor itemClass("ArchiveTestItem");

inline void* Handle(Item* item)
{
    return static_cast<qel::Interface*>(item);
}

inline Item* ItemOf(void* handle)
{
    return static_cast<Item*>(static_cast<qel::Interface*>(handle));
}

} // namespace archivetest
