// Tour section of the file archive, and `qeltool describe`.
//
// The tour saves a small room in a logging pass: the room names one lamp in
// two places and holds an unnamed shade. It shows the files, the log and the
// room's description, loads the room back with another archive and checks
// that the graph is the same.
#include "tour.h"

#include <qel/classdescriptor.h>
#include <qel/exception.h>
#include <qel/filearchive.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/genericreader.h>
#include <qel/inputfilestream.h>
#include <qel/resourcemanager.h>
#include <qel/serializer.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace qeltool
{

namespace
{

using qel::Interface;
using qel::Serializer;

struct Lamp : Interface
{
    float power = 0;
    char colour[16] = {};
};

struct Room : Interface
{
    char title[32] = {};
    Lamp* ceiling = nullptr;
    Lamp* desk = nullptr;
    Lamp* shade = nullptr; // unnamed: saved inside the room's file
};

void* Handle(Interface* object)
{
    return object;
}

template <class T>
T* As(void* handle)
{
    return static_cast<T*>(static_cast<Interface*>(handle));
}

void Text(Serializer& s, const char* name, char* text, qel::u32 capacity)
{
    s.Identify(name);
    if (s.IsWriting())
        qel::WriteString(s, text);
    else
        qel::ReadString(s, text, capacity);
}

class LampClass : public qel::ClassDescriptor
{
public:
    LampClass() : ClassDescriptor("TourLamp") {}
    Interface* CreateInstance() const override { return new Lamp; }
    void SerializeInstance(Interface& object, Serializer& s) const override
    {
        Lamp& lamp = static_cast<Lamp&>(object);
        s.Identify("Power");
        s.Serialize(lamp.power);
        Text(s, "Colour", lamp.colour, sizeof lamp.colour);
    }
};

LampClass& Lamps()
{
    static LampClass lamps;
    return lamps;
}

class RoomClass : public qel::ClassDescriptor
{
public:
    RoomClass() : ClassDescriptor("TourRoom") {}
    Interface* CreateInstance() const override { return new Room; }
    void SerializeInstance(Interface& object, Serializer& s) const override
    {
        Room& room = static_cast<Room&>(object);
        Text(s, "Title", room.title, sizeof room.title);
        const char* names[] = {"Ceiling", "Desk", "Shade"};
        Lamp** lamps[] = {&room.ceiling, &room.desk, &room.shade};
        for (int i = 0; i < 3; ++i)
        {
            s.Identify(names[i]);
            s.Begin();
            if (s.IsWriting())
                s.Save(Lamps(), Handle(*lamps[i]));
            else
                *lamps[i] = As<Lamp>(s.Load());
            s.End();
        }
    }
};

RoomClass& Rooms()
{
    static RoomClass rooms;
    return rooms;
}

void PrintFile(const std::filesystem::path& local)
{
    std::ifstream in(local, std::ios::binary);
    std::string line;
    while (std::getline(in, line))
    {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        std::printf("    %s\n", line.c_str());
    }
}

// Removes the objects from the manager and deletes them, once each.
void Release(std::vector<Interface*> objects)
{
    for (std::size_t i = 0; i < objects.size(); ++i)
    {
        bool seen = false;
        for (std::size_t j = 0; j < i; ++j)
            seen = seen || objects[j] == objects[i];
        if (seen || objects[i] == nullptr)
            continue;
        qel::ResourceManager::Remove(Handle(objects[i]));
        delete objects[i];
    }
}

} // namespace

void TourArchive(const TourContext&)
{
    Banner("archive");
    const std::filesystem::path local = std::filesystem::temp_directory_path() / "qeltool-archive";
    std::error_code ignored;
    std::filesystem::remove_all(local, ignored);
    const std::string root = VirtualPath(local.string()) + "/";

    Lamp ceiling, shade;
    ceiling.power = 60;
    std::strcpy(ceiling.colour, "warm white");
    shade.power = 0.5f;
    std::strcpy(shade.colour, "amber");
    Room room;
    std::strcpy(room.title, "Hall");
    room.ceiling = room.desk = &ceiling; // one lamp in two places
    room.shade = &shade;

    try
    {
        for (Interface* object : {static_cast<Interface*>(&room), static_cast<Interface*>(&ceiling),
                                  static_cast<Interface*>(&shade)})
            qel::ResourceManager::Insert(Handle(object));
        qel::FileArchive archive(1, root.c_str(), nullptr);
        archive.SetResourceName(Handle(&room), "rooms/hall");
        archive.SetResourceName(Handle(&ceiling), "lamps/ceiling");
        archive.SetLoggingMode(true);
        archive.BeginSave();
        archive.Save(Rooms(), Handle(&room));
        archive.EndSave();
        for (Interface* object :
             {static_cast<Interface*>(&shade), static_cast<Interface*>(&ceiling),
              static_cast<Interface*>(&room)})
            qel::ResourceManager::Remove(Handle(object));

        std::printf("saved the room under %s:\n", root.c_str());
        for (const char* file : {"rooms/hall.bin", "rooms/hall.bin.dat", "lamps/ceiling.bin",
                                 "lamps/ceiling.bin.dat", "filearchive.log"})
            std::printf("  %-22s %6u bytes\n", file,
                        unsigned(std::filesystem::file_size(local / file, ignored)));
        std::printf("the log of the pass (the lamp named twice is written once):\n");
        PrintFile(local / "filearchive.log");
        std::printf("rooms/hall.bin.dat:\n");
        PrintFile(local / "rooms/hall.bin.dat");

        qel::FileArchive reader(1, root.c_str(), nullptr);
        Room* loaded = As<Room>(reader.Load("rooms/hall"));
        const bool same = std::strcmp(loaded->title, room.title) == 0 &&
                          loaded->ceiling == loaded->desk && loaded->ceiling->power == 60 &&
                          std::strcmp(loaded->ceiling->colour, "warm white") == 0 &&
                          loaded->shade != loaded->ceiling &&
                          std::strcmp(loaded->shade->colour, "amber") == 0 &&
                          reader.GetFilename(Handle(loaded->shade)) == nullptr;
        std::printf("loaded it back: room \"%s\", ceiling and desk %s one lamp (%s), shade "
                    "\"%s\" with no file of its own: %s\n",
                    loaded->title, loaded->ceiling == loaded->desk ? "are" : "are NOT",
                    reader.GetFilename(Handle(loaded->ceiling)), loaded->shade->colour,
                    same ? "the same graph" : "DIFFERENT");
        Release({loaded->shade, loaded->ceiling, loaded});
    }
    catch (const qel::Exception& e)
    {
        std::printf("archive error: %s\n", e.GetReason());
    }
}

int DescribeFiles(int count, char** paths)
{
    int status = 0;
    for (int i = 0; i < count; ++i)
    {
        const std::string local = Utf8(std::filesystem::absolute(LocalPath(paths[i])));
        const std::string path = VirtualPath(local);
        try
        {
            // A file that ends before its class name is whole is damaged,
            // not of another kind: its length is checked before each read.
            const qel::Exception truncated("truncated resource file");
            qel::InputFileStream stream(path.c_str());
            const qel::u64 size = stream.GetSize();
            char tag[9] = {};
            stream.Read(tag, 8);
            if (size < 8)
            {
                for (const char* known : {"qel/b0-l", "qel/b0-b"})
                    if (std::strncmp(tag, known, std::size_t(size)) == 0)
                        throw truncated;
                throw qel::UnknownFormat();
            }
            qel::InputFileStream again(path.c_str());
            std::unique_ptr<qel::Reader> reader(qel::GenericReader::Create(&again, nullptr));
            if (size < 16)
                throw truncated;
            qel::u32 version = 0;
            reader->Serialize(version);
            qel::u32 length = 0;
            reader->Serialize(length);
            if (length > 1024)
                throw qel::Exception("not a resource file (its class name is too long)");
            if (size < 16 + length)
                throw truncated;
            std::string name(length, '\0');
            reader->Serialize(&name[0], length, 1);
            std::printf("%s\n  header: %s (%s byte order)\n  File Version: %u\n  Class Name: %s\n",
                        paths[i], tag, tag[7] == 'b' ? "big-endian" : "little-endian",
                        unsigned(version), name.c_str());
            std::ifstream description(LocalPath(local + ".dat"));
            if (description)
            {
                std::printf("  description (%s.dat):\n", paths[i]);
                PrintFile(local + ".dat");
            }
        }
        catch (const qel::UnknownFormat&)
        {
            std::fprintf(stderr, "%s: not a resource file (unknown header)\n", paths[i]);
            status = 1;
        }
        catch (const qel::FileException& e)
        {
            std::fprintf(stderr, "%s: %s\n", paths[i], FileReason(e).c_str());
            status = 1;
        }
        catch (const qel::Exception& e)
        {
            std::fprintf(stderr, "%s: %s\n", paths[i], e.GetReason());
            status = 1;
        }
    }
    return status;
}

} // namespace qeltool
