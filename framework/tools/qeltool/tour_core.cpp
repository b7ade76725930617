// Tour section: the core runtime.
#include "tour.h"

#include <qel/errormanager.h>
#include <qel/filemanager.h>
#include <qel/host.h>
#include <qel/report.h>
#include <qel/systembase.h>
#include <qel/textoutputdevice.h>
#include <qel/version.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace qeltool
{

void Banner(const char* title)
{
    std::printf("\n== %s ==\n", title);
}

std::string VirtualPath(const std::string& local)
{
    // Whole, however long: the file manager refuses a path too long for it,
    // where a cut one would name another file. UTF-8, as the library's
    // names are.
    std::error_code ignored;
    const std::string absolute = Utf8(std::filesystem::absolute(LocalPath(local), ignored));
    std::vector<char> path(absolute.size() + 16);
    qel::FileManager::GetSingletonInstance().ResolveLocalPath(absolute.c_str(), path.data(),
                                                              qel::u32(path.size()));
    return path.data();
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
    if (std::ifstream file{LocalPath(path)})
    {
        std::string line;
        while (std::getline(file, line))
        {
            unsigned code = 0;
            if (line[0] != '#' && std::sscanf(line.c_str(), "%x", &code) == 1 && code < 256)
                characters += char(code);
        }
    }
    else
    {
        std::printf("(%s not found: using built-in characters)\n", path.c_str());
        characters = "aZ7 \t\xC9\xDF\xFF";
    }
    return characters;
}

// Answers the tour's questions from a script and tells what it would have
// shown; debugger breaks are only announced.
class TourHost : public qel::Host
{
public:
    explicit TourHost(std::initializer_list<qel::QueryDevice::QueryAnswer> answers)
        : m_Answers(answers), m_Previous(qel::Host::Set(this))
    {
    }
    ~TourHost() override { qel::Host::Set(m_Previous); }

    qel::QueryDevice::QueryAnswer Ask(qel::u32 choice, const char* caption, const char*) override
    {
        const qel::QueryDevice::QueryAnswer answer =
            m_Next < m_Answers.size() ? m_Answers[m_Next++]
                                      : qel::QueryDevice::ExtractDefaultChoice(choice);
        std::printf("[box \"%s\", choice 0x%08X] the user answers %s\n", caption, unsigned(choice),
                    AnswerName(answer));
        return answer;
    }
    void BreakIntoDebugger() override { std::printf("[break into the debugger here]\n"); }

private:
    static const char* AnswerName(qel::QueryDevice::QueryAnswer answer)
    {
        switch (answer)
        {
        case qel::QueryDevice::Abort:
            return "Abort";
        case qel::QueryDevice::Cancel:
            return "Cancel";
        case qel::QueryDevice::Ignore:
            return "Ignore";
        case qel::QueryDevice::Retry:
            return "Retry";
        case qel::QueryDevice::OK:
            return "OK";
        case qel::QueryDevice::Yes:
            return "Yes";
        case qel::QueryDevice::No:
            return "No";
        }
        return "?";
    }

    std::vector<qel::QueryDevice::QueryAnswer> m_Answers;
    size_t m_Next = 0;
    qel::Host* m_Previous;
};

// Prints what the error manager writes to the tour's category.
class TourDevice : public qel::TextOutputDevice
{
public:
    TourDevice() : TextOutputDevice(false) {}
    void Write(const char* text) override { std::printf("[device] %s", text); }
};

void TourReports()
{
    qel::ErrorManager& errors = qel::ErrorManager::GetSingletonInstance();
    const qel::u32 category = errors.RegisterCategory(qel::ErrorManager::BaseCategory, "Tour");
    TourDevice device;
    errors.RegisterOutputDevice(category, &device);

    std::printf("An assert answered Ignore, then No to seeing it again; reported twice:\n");
    {
        TourHost host({qel::QueryDevice::Ignore, qel::QueryDevice::No});
        for (int pass = 0; pass < 2; ++pass)
        {
            std::printf("-- pass %d\n", pass + 1);
            QEL_ASSERT(category, pass < 0);
        }
    }
    std::printf("\nA warning answered Retry:\n");
    {
        TourHost host({qel::QueryDevice::Retry});
        QEL_WARNING(category, "%d of %d sample files missing", 1, 3);
    }
    errors.UnRegisterCategory(category);
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

    Banner("asserts and warnings");
    TourReports();
}

} // namespace qeltool
