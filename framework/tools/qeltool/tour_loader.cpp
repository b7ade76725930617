// Tour section of the sectioned text format, and `qeltool check`, `print`
// and `find`.
#include "command.h"
#include "standardoutput.h"
#include "tour.h"

#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/loader.h>
#include <qel/outputstream.h>
#include <qel/parsednode.h>
#include <qel/parser.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace qeltool
{

namespace
{

void PrintNode(qel::ParsedNode& node)
{
    StandardOutput out;
    node.Print(out, 0);
}

// Counts the objects of a scene and remembers the lamp's power.
struct ObjectHandler : qel::LoaderHandler
{
    ObjectHandler() : LoaderHandler("Object") {}
    void* Load(qel::ParsedSection* section, void* data) override
    {
        const qel::ParsedEntry* name = section->GetName();
        std::printf("  the Object handler builds \"%s\" from %u entries and sections\n",
                    name && name->GetIdentifier() ? name->GetIdentifier() : "",
                    unsigned(section->GetChildCount()));
        ++*static_cast<int*>(data);
        return section;
    }
};

} // namespace

void TourLoader(const TourContext& context)
{
    Banner("sectioned text");
    ObjectHandler objects;
    const std::string file = VirtualPath((context.dataDir + "scene.txt").c_str());
    qel::ParsedFile* tree = qel::Loader::GetFile(file.c_str());
    if (tree == nullptr)
    {
        std::printf("cannot read %s\n", file.c_str());
        return;
    }
    std::printf("%s parsed into %u top-level node(s); printed back:\n", file.c_str(),
                unsigned(tree->GetChildCount()));
    PrintNode(*tree);
    int built = 0;
    for (const char* request : {"^Scene^Object:La", "^Scene:Hall^Obj:Table", "^Scene^Object:Sofa"})
    {
        std::printf("request %s\n", request);
        try
        {
            qel::Loader::Load((file + request).c_str(), &built);
        }
        catch (const qel::Loader::LoaderException& e)
        {
            std::printf("  %s\n", e.GetReason());
        }
    }
    std::printf("%d object(s) built; the file was parsed once (%u cached)\n", built,
                unsigned(qel::ParserPool::GetCachedFileCount()));
    qel::Loader::ReleaseCachedFiles();
}

int CheckFiles(int count, char** paths)
{
    int status = 0;
    for (int i = 0; i < count; ++i)
    {
        // Comments kept or skipped, the same files are valid: skipped, the
        // tree takes less memory.
        qel::Parser::SetParsingComment(false);
        qel::ParseError error{};
        const std::string path = VirtualPath(paths[i]);
        qel::ParsedFile* file = qel::Parser::CheckFile(path.c_str(), error);
        if (file != nullptr)
        {
            delete file;
            continue;
        }
        status = 1;
        if (error.line == 0)
        {
            const std::string reason = WhyUnreadable(path);
            std::fprintf(stderr, "%s: %s\n", paths[i],
                         reason.empty() ? "cannot be read" : reason.c_str());
        }
        else
            std::fprintf(stderr, "%s:%u:%u: %s\n  tree trace: %s\n", paths[i], unsigned(error.line),
                         unsigned(error.column), error.message, error.trace);
    }
    return status;
}

int PrintFile(int, char** paths)
{
    qel::ParseError error{};
    qel::ParsedFile* file = qel::Parser::CheckFile(VirtualPath(paths[0]).c_str(), error);
    if (file == nullptr)
        return CheckFiles(1, paths);
    PrintNode(*file);
    delete file;
    return 0;
}

int FindSection(int, char** requests)
{
    const std::string request = requests[0];
    const std::size_t caret = request.find('^');
    if (caret == std::string::npos)
        return UsageError("find", "the request has no '^' between the file and the section");
    std::string path = request.substr(0, caret);
    qel::ParseError error{};
    qel::ParsedFile* file = qel::Parser::CheckFile(VirtualPath(path.c_str()).c_str(), error);
    if (file == nullptr)
    {
        char* paths[] = {&path[0]};
        return CheckFiles(1, paths);
    }
    qel::ParsedRoot* section = file->FindChild(request.c_str() + caret + 1);
    int status = 0;
    if (section != nullptr)
        PrintNode(*section);
    else
    {
        std::fprintf(stderr, "%s: no such section\n", request.c_str());
        status = 1;
    }
    delete file;
    return status;
}

} // namespace qeltool
