// The sections of `qeltool tour`. Each section shows one subsystem at work on
// the sample data and prints what it did.
#pragma once

#include <filesystem>
#include <string>

namespace qel
{
class FileException;
}

namespace qeltool
{

struct TourContext
{
    std::string dataDir; // the sample data folder, with a trailing '/'
};

// Prints a section banner.
void Banner(const char* title);
// The tool holds every name as UTF-8 text, as the library does (its command
// line is UTF-8 on Windows too): these turn such a text into a path of the
// system and back. A std::string given straight to std::filesystem, a stream
// or fopen would be read in the ANSI code page on Windows.
inline std::filesystem::path LocalPath(const std::string& utf8)
{
    return std::filesystem::u8path(utf8);
}
inline std::string Utf8(const std::filesystem::path& path)
{
    return path.u8string();
}
// The virtual path of a path of the system (made absolute first).
std::string VirtualPath(const std::string& local);
// What a file error says to the user after "FILE: ": the system's reason,
// or the library's own text ("Path too long") when the system gave none.
std::string FileReason(const qel::FileException& error);
// Why the file at `virtualPath` cannot be opened for reading, as above;
// empty when it can.
std::string WhyUnreadable(const std::string& virtualPath);

void TourCore(const TourContext& context);
void TourMemory(const TourContext& context);
void TourThread(const TourContext& context);
void TourFiles(const TourContext& context);
void TourStreams(const TourContext& context);
void TourLoader(const TourContext& context);
void TourStreaming(const TourContext& context);
void TourSerialization(const TourContext& context);
void TourArchive(const TourContext& context);
void TourGeometry(const TourContext& context);
void TourMarkup(const TourContext& context);

// qeltool mounts: the file manager's mount table, one mount a line.
void PrintMountTable();
// qeltool resolve: each virtual path's native path and mount, or the error;
// 1 when one of them is under no mount.
int ResolvePaths(int count, char** paths);
// qeltool check: each file's syntax errors as FILE:LINE:COLUMN: message;
// 1 when a file is bad or unreadable.
int CheckFiles(int count, char** paths);
// qeltool print: the file in its canonical form.
int PrintFile(int count, char** paths);
// qeltool find FILE^Type:Name: the section, or 1 when it is not there.
int FindSection(int count, char** requests);
// qeltool stream PATH RATE [SECONDS]: streams a file of the system at RATE
// bytes per second with a live progress line, then a summary; 2 on bad
// arguments, 1 when the file cannot be opened.
int StreamFile(int count, char** args);
// qeltool describe: each resource file's header, version, class and
// description; 1 when one of them is not a resource file.
int DescribeFiles(int count, char** paths);

// qeltool xml: checks each document, prints its element tree or its first
// error as FILE:LINE:COLUMN: message; 1 when one is bad or unreadable.
// `strict` refuses what lenient readers accept.
int XmlTree(int count, char** paths, bool strict);

// qeltool memory: the memory report (HTML) read from `dumps`, or of a
// built-in workload with `demo`, to `output` (standard output when null); 2
// on bad arguments, 1 when a file cannot be read or written.
int MemoryReport(int count, char** dumps, const char* output, bool demo);

} // namespace qeltool
