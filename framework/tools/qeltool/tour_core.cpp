// Tour section: the core runtime.
#include "tour.h"

#include <qel/systembase.h>
#include <qel/version.h>

#include <cstdio>
#include <string>

namespace qeltool
{

void Banner(const char* title)
{
    std::printf("\n== %s ==\n", title);
}

namespace
{

std::string ClassNames(unsigned char flags)
{
    static const struct
    {
        unsigned char bit;
        const char* name;
    } kNames[] = {
        {qel::SystemBase::Printable, "printable"}, {qel::SystemBase::UpperCase, "upper"},
        {qel::SystemBase::LowerCase, "lower"},     {qel::SystemBase::WhiteSpace, "space"},
        {qel::SystemBase::Letter, "letter"},       {qel::SystemBase::HexDigit, "hex"},
        {qel::SystemBase::Digit, "digit"},         {qel::SystemBase::BinaryDigit, "binary"}};
    std::string text;
    for (const auto& n : kNames)
        if (flags & n.bit)
            text += (text.empty() ? "" : " ") + std::string(n.name);
    return text.empty() ? "(none)" : text;
}

// The characters to classify, read from the sample file: one per line,
// written as a two-digit hexadecimal code, '#' starts a comment.
std::string SampleCharacters(const TourContext& context)
{
    std::string characters;
    std::string path = context.dataDir + "characters.txt";
    if (FILE* file = std::fopen(path.c_str(), "r"))
    {
        char line[128];
        while (std::fgets(line, sizeof line, file))
        {
            unsigned code = 0;
            if (line[0] != '#' && std::sscanf(line, "%x", &code) == 1 && code < 256)
                characters += char(code);
        }
        std::fclose(file);
    }
    else
    {
        std::printf("(%s not found: using built-in characters)\n", path.c_str());
        characters = "aZ7 \t\xC9\xDF\xFF";
    }
    return characters;
}

} // namespace

void TourCore(const TourContext& context)
{
    Banner("platform");
    std::printf("qel Base %s built for %s\n", qel::GetVersionString(), qel::GetPlatformName());

    Banner("character classes");
    std::printf("code\tlower\tupper\tflags\tclasses\n");
    for (char c : SampleCharacters(context))
    {
        unsigned char u = static_cast<unsigned char>(c);
        std::printf("0x%02X\t0x%02X\t0x%02X\t0x%02X\t%s\n", u, qel::SystemBase::ms_LowerCase[u],
                    qel::SystemBase::ms_UpperCase[u], qel::SystemBase::ms_AsciiFlag[u],
                    ClassNames(qel::SystemBase::ms_AsciiFlag[u]).c_str());
    }
}

} // namespace qeltool
