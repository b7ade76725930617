// qeltool: the command-line face of qel Base.
#include "tour.h"

#include <qel/version.h>

#include <cstdio>
#include <cstring>

namespace
{

const char kUsage[] = "usage: qeltool <command> [arguments]\n"
                      "\n"
                      "commands:\n"
                      "  tour [DATA_DIR]   show each subsystem at work on the sample data\n"
                      "                    (DATA_DIR defaults to ./samples)\n"
                      "  mounts            print the file manager's mount table\n"
                      "  resolve PATH...   print each virtual path's native path and mount\n"
                      "  check FILE...     report the syntax errors of sectioned text files\n"
                      "  print FILE        print a sectioned text file in its canonical form\n"
                      "  find FILE^Type[:Name]...\n"
                      "                    print the section a loader request finds\n"
                      "  stream PATH RATE [SECONDS]\n"
                      "                    read a file at RATE bytes per second (16M, 512k...)\n"
                      "                    through a streaming request, for at most SECONDS\n"
                      "  describe FILE...  print each resource file's header, version, class\n"
                      "                    and, when beside it, its .dat description\n"
                      "  xml [--strict] FILE...\n"
                      "                    check XML documents and print their element trees\n"
                      "\n"
                      "options:\n"
                      "  --help            print this text\n"
                      "  --version         print the library's version and platform\n";

int Tour(int argc, char** argv)
{
    qeltool::TourContext context;
    context.dataDir = argc > 0 ? argv[0] : "samples";
    if (context.dataDir.empty() || context.dataDir.back() != '/')
        context.dataDir += '/';
    qeltool::TourCore(context);
    qeltool::TourMemory(context);
    qeltool::TourThread(context);
    qeltool::TourFiles(context);
    qeltool::TourStreams(context);
    qeltool::TourLoader(context);
    qeltool::TourStreaming(context);
    qeltool::TourSerialization(context);
    qeltool::TourArchive(context);
    qeltool::TourMarkup(context);
    qeltool::TourGeometry(context);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)
    {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    if (std::strcmp(argv[1], "--version") == 0)
    {
        std::printf("qeltool %s (qel Base, %s)\n", qel::GetVersionString(), qel::GetPlatformName());
        return 0;
    }
    if (std::strcmp(argv[1], "tour") == 0)
        return Tour(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "mounts") == 0)
    {
        qeltool::PrintMountTable();
        return 0;
    }
    if (std::strcmp(argv[1], "resolve") == 0)
        return qeltool::ResolvePaths(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "check") == 0)
        return qeltool::CheckFiles(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "print") == 0)
        return qeltool::PrintFile(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "find") == 0)
        return qeltool::FindSection(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "stream") == 0)
        return qeltool::StreamFile(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "describe") == 0)
        return qeltool::DescribeFiles(argc - 2, argv + 2);
    if (std::strcmp(argv[1], "xml") == 0)
        return qeltool::XmlTree(argc - 2, argv + 2);
    std::fprintf(stderr, "qeltool: unknown command '%s'\n\n%s", argv[1], kUsage);
    return 2;
}
