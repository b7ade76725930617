// The sectioned text parser on any bytes, and the section search on the
// tree. A file either parses or gives a syntax error with its line and
// column, never a crash. A tree printed back reads back as the same tree
// and prints the same text (printing is the canonical form).
#include <qel/filemanager.h>
#include <qel/outputstream.h>
#include <qel/parsednode.h>
#include <qel/parser.h>
#include <qel/provider.h>

#include "../test/support/parsedshape.h"
#include "fuzzhost.h"

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace
{

// Collects what is written into a string.
class Collect : public qel::Provider
{
public:
    Collect() { m_Open = true; }
    void Request(qel::u64, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override
    {
        block = current = m_Block;
        end = m_Block + sizeof m_Block;
    }
    void Return(void* block, void* end) override
    {
        text.append(static_cast<const char*>(block),
                    static_cast<const char*>(end) - static_cast<const char*>(block));
    }
    void Return(void* block) override { Return(block, m_Block + sizeof m_Block); }

    std::string text;

private:
    unsigned char m_Block[4096];
};

class TextStream : public qel::OutputStream
{
public:
    TextStream() : OutputStream(&collect) {}
    ~TextStream() override { Finish(); }
    Collect collect;
};

std::string Printed(qel::ParsedNode& node)
{
    TextStream out;
    node.Print(out, 0);
    out.Flush();
    return out.collect.text;
}

struct Scratch
{
    Scratch()
    {
        local = qelfuzz::ScratchPath("qel-parser-fuzz") + ".txt";
        char path[qel::FileManager::PathSize];
        qel::FileManager::GetSingletonInstance().ResolveLocalPath(local.c_str(), path, sizeof path);
        virtualPath = path;
    }
    ~Scratch()
    {
        std::error_code ignored;
        std::filesystem::remove(local, ignored);
    }
    std::unique_ptr<qel::ParsedFile> Parse(const std::string& text, qel::ParseError& error)
    {
        // A new file each time: ext4 writes out a file cut and written
        // again at once, which would make every run wait for the disk.
        std::error_code ignored;
        std::filesystem::remove(local, ignored);
        std::ofstream(local, std::ios::binary) << text;
        return std::unique_ptr<qel::ParsedFile>(qel::Parser::CheckFile(virtualPath.c_str(), error));
    }
    std::string local, virtualPath;
};

void Check(const std::uint8_t* data, std::size_t size)
{
    static Scratch scratch;
    // The first byte says whether comments are kept; the rest is the file.
    qel::Parser::SetParsingComment(size > 0 && (data[0] & 1));
    const std::string text(reinterpret_cast<const char*>(data) + (size > 0),
                           size > 0 ? size - 1 : 0);
    qel::ParseError error{};
    std::unique_ptr<qel::ParsedFile> tree = scratch.Parse(text, error);
    if (!tree)
    {
        if (error.line == 0 || error.column == 0 || error.message[0] == 0)
            std::abort(); // a file that is there fails only with a syntax error
        return;
    }
    // Searching never fails on any path made of the input's own names.
    if (tree->GetChildCount() > 0 && tree->GetChild(0)->GetIdentifier())
        tree->FindChild(tree->GetChild(0)->GetIdentifier());
    tree->FindChild(text.c_str());

    const std::string printed = Printed(*tree);
    qel::ParseError again{};
    std::unique_ptr<qel::ParsedFile> reparsed = scratch.Parse(printed, again);
    if (!reparsed)
    {
        std::fprintf(stderr, "parser fuzz: the printed tree does not parse: %s at %u:%u\n",
                     again.message, unsigned(again.line), unsigned(again.column));
        std::abort();
    }
    if (qeltest::Shape(*reparsed) != qeltest::Shape(*tree) || Printed(*reparsed) != printed)
    {
        std::fprintf(stderr, "parser fuzz: the printed tree reads back otherwise\n");
        std::abort();
    }
}

} // namespace

// A stack of 256 KB instead of 8 MB: recursion on the input's depth then
// shows on inputs a few thousand levels deep, which the fuzzer reaches.
// Linux grows the main thread's stack up to the limit in force at the time.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    rlimit limit;
    if (getrlimit(RLIMIT_STACK, &limit) == 0)
    {
        limit.rlim_cur = 256 << 10;
        setrlimit(RLIMIT_STACK, &limit);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qelfuzz::QuietHost::Install();
    Check(data, size);
    return 0;
}
