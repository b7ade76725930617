// The tool's entry point on Windows. main would receive its arguments in the
// ANSI code page, which cannot spell every file name ("σχήμα.xml" arrives as
// "s??�a.xml"); wmain receives them whole, and they go on as UTF-8, the
// library's encoding of names. Output goes to the console as UTF-8 too, and
// the console's code page is given back at exit.
#include "../command.h"

#include <windows.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace
{

UINT g_ConsoleOutputCodePage = 0;

void RestoreConsoleOutputCodePage()
{
    SetConsoleOutputCP(g_ConsoleOutputCodePage);
}

std::string Utf8(const wchar_t* text)
{
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
        return std::string();
    std::string utf8(size_t(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &utf8[0], bytes, nullptr, nullptr);
    utf8.pop_back(); // the terminator, which std::string keeps on its own
    return utf8;
}

} // namespace

int wmain(int argc, wchar_t** argv)
{
    g_ConsoleOutputCodePage = GetConsoleOutputCP();
    if (g_ConsoleOutputCodePage != 0 && g_ConsoleOutputCodePage != CP_UTF8 &&
        SetConsoleOutputCP(CP_UTF8))
        std::atexit(RestoreConsoleOutputCodePage);

    std::vector<std::string> arguments;
    arguments.reserve(size_t(argc));
    for (int i = 0; i < argc; ++i)
        arguments.push_back(Utf8(argv[i]));
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(&argument[0]);
    pointers.push_back(nullptr);
    return qeltool::Main(argc, pointers.data());
}
