// qeltool: the command-line face of qel Base.
#include "command.h"
#include "tour.h"

#include <qel/version.h>

#include <cstdio>
#include <cstring>
#include <system_error>

namespace qeltool
{

namespace
{

int Tour(Arguments& arguments)
{
    TourContext context;
    context.dataDir = arguments.Count() > 0 ? arguments.operands[0] : "samples";
    std::error_code error;
    if (!std::filesystem::is_directory(LocalPath(context.dataDir), error))
    {
        std::fprintf(stderr, "%s: %s\n", context.dataDir.c_str(),
                     error ? error.message().c_str() : "not a folder");
        return ExitFailed;
    }
    if (context.dataDir.back() != '/')
        context.dataDir += '/';
    TourCore(context);
    TourMemory(context);
    TourThread(context);
    TourFiles(context);
    TourStreams(context);
    TourLoader(context);
    TourStreaming(context);
    TourSerialization(context);
    TourArchive(context);
    TourMarkup(context);
    TourGeometry(context);
    return ExitDone;
}

int Mounts(Arguments&)
{
    PrintMountTable();
    return ExitDone;
}

} // namespace

const std::vector<Command>& Commands()
{
    static const std::vector<Command> kCommands = {
        {"tour", "[DATA_DIR]", 0, 1, Tour, "show each subsystem at work on the sample data",
         "DATA_DIR defaults to ./samples."},
        {"mounts", "", 0, 0, Mounts, "print the file manager's mount table", ""},
        {"resolve", "PATH...", 1, -1,
         [](Arguments& a) { return ResolvePaths(a.Count(), a.Operands()); },
         "print each virtual path's native path and mount", "Fails when a path is under no mount."},
        {"check", "FILE...", 1, -1,
         [](Arguments& a) { return CheckFiles(a.Count(), a.Operands()); },
         "report the syntax errors of sectioned text files",
         "Errors are written as FILE:LINE:COLUMN: message, with the tree trace."},
        {"print", "FILE", 1, 1, [](Arguments& a) { return PrintFile(a.Count(), a.Operands()); },
         "print a sectioned text file in its canonical form", ""},
        {"find", "FILE^Type[:Name][^Type[:Name]...]", 1, 1,
         [](Arguments& a) { return FindSection(a.Count(), a.Operands()); },
         "print the section a loader request finds", "Fails when the file has no such section."},
        {"stream", "PATH RATE [SECONDS]", 2, 3,
         [](Arguments& a) { return StreamFile(a.Count(), a.Operands()); },
         "read a file at RATE bytes per second through a streaming request",
         "RATE is bytes per second from 4 up, with k or M for 1024 or 1048576 (16M, 512k);\n"
         "the read stops after SECONDS when they are given. A live line shows the bytes\n"
         "read, the rate achieved and the ring's fill, and a summary ends the run; it\n"
         "says so when the machine did not reach RATE."},
        {"describe", "FILE...", 1, -1,
         [](Arguments& a) { return DescribeFiles(a.Count(), a.Operands()); },
         "print each resource file's header, version and class",
         "The .dat description beside a file is printed too."},
        {"xml",
         "FILE...",
         1,
         -1,
         [](Arguments& a) { return XmlTree(a.Count(), a.Operands(), a.Has("--strict")); },
         "check XML documents and print their element trees",
         "The first error of a document is written as FILE:LINE:COLUMN: message.",
         {{"--strict", "also refuse what lenient readers accept: no root element, '--' in a\n"
                       "              comment, bytes that are not UTF-8, control characters,\n"
                       "              ']]>' in text, a late XML declaration, two DOCTYPEs"}}},
        {"memory",
         "[DUMP...]",
         0,
         -1,
         [](Arguments& a)
         { return MemoryReport(a.Count(), a.Operands(), a.Value("-o"), a.Has("--demo")); },
         "draw the memory report, one HTML page, from dumps saved earlier",
         "Save the dumps with Mem::DumpAllStatistics (or the page manager's and the\n"
         "allocators' own dumps, in any order). --demo reports on a short built-in\n"
         "workload instead: pools, the general allocator, a leak between two markers.",
         {{"-o", "the page's file (standard output without)", "FILE"},
          {"--demo", "report on the built-in workload"}}},
    };
    return kCommands;
}

} // namespace qeltool

int qeltool::Main(int argc, char** argv)
{
    if (argc < 2)
    {
        PrintUsage(stderr);
        return ExitUsage;
    }
    const char* first = argv[1];
    if (std::strcmp(first, "--help") == 0 || std::strcmp(first, "-h") == 0)
    {
        PrintUsage(stdout);
        return ExitDone;
    }
    if (std::strcmp(first, "--version") == 0)
    {
        std::printf("qeltool %s (qel Base, %s)\n", qel::GetVersionString(), qel::GetPlatformName());
        return ExitDone;
    }
    if (const Command* command = FindCommand(first))
        return RunCommand(*command, argc - 2, argv + 2);
    std::fprintf(stderr, "qeltool: unknown %s '%s'\n\n", first[0] == '-' ? "option" : "command",
                 first);
    PrintUsage(stderr);
    return ExitUsage;
}
