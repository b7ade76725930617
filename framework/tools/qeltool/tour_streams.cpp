// Tour section of the streams: values written to a file under a virtual
// path through an output file stream, read back through an input file
// stream, and the same values collected by a growing memory stream.
#include "tour.h"

#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/inputfilestream.h>
#include <qel/outputfilestream.h>
#include <qel/outputmemorystream.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace qeltool
{

void TourStreams(const TourContext&)
{
    using qel::FileManager;
    FileManager& manager = FileManager::GetSingletonInstance();
    Banner("streams");

    const std::string local = Utf8(std::filesystem::temp_directory_path() / "qeltool-streams");
    char folder[FileManager::PathSize];
    manager.ResolveLocalPath(local.c_str(), folder, sizeof folder);
    std::string path = folder;
    if (path.empty() || path.back() != '/')
        path += '/';
    const std::string scratch = path;
    path += "values.bin";

    try
    {
        {
            // OpenCreatePath makes the folder; the tail is written when the stream dies.
            qel::OutputFileStream out(path.c_str());
            out.Write(static_cast<qel::u32>(0x51454C21));
            const unsigned short shorts[3] = {1, 2, 3};
            out.Write(shorts, 3, 2);
            out.Write("stream", 7);
            std::printf("wrote %u bytes to %s\n", unsigned(out.GetPosition()), path.c_str());
        }
        qel::InputFileStream in(path.c_str());
        qel::u32 tag = 0;
        unsigned short shorts[3] = {};
        char text[7] = {};
        in.Read(tag);
        in.Read(shorts, 3, 2);
        in.Read(text, sizeof text);
        std::printf("read back %llu bytes: 0x%08X, {%u, %u, %u}, \"%s\"\n",
                    static_cast<unsigned long long>(in.GetSize()), unsigned(tag),
                    unsigned(shorts[0]), unsigned(shorts[1]), unsigned(shorts[2]), text);
    }
    catch (const qel::FileException& e)
    {
        std::printf("%s\n", e.GetReason());
    }
    manager.DeleteFile(path.c_str());
    manager.DeleteDirectory(scratch.c_str());

    qel::OutputMemoryStream memory;
    memory.Write("abcde", 5);
    qel::u32 size = 0;
    memory.GetBuffer(size);
    std::printf("memory stream after 5 bytes holds %u (an odd last byte counts once flushed)",
                unsigned(size));
    memory.Flush();
    memory.GetBuffer(size);
    std::printf(", %u after Flush\n", unsigned(size));
}

} // namespace qeltool
