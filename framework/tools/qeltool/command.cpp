// qeltool's command line: options, operands, usage texts and exit codes.
#include "command.h"

#include <cstring>

namespace qeltool
{

namespace
{

// "stream PATH RATE [SECONDS]"
std::string CommandLine(const Command& command)
{
    return *command.synopsis ? std::string(command.name) + " " + command.synopsis : command.name;
}

void PrintHelp(const Command& command)
{
    std::printf("usage: qeltool %s\n", CommandLine(command).c_str());
    std::printf("\n%s\n", command.summary);
    if (*command.details)
        std::printf("%s\n", command.details);
    std::printf("\noptions:\n  -h, --help  print this text\n");
    for (const Option& option : command.options)
    {
        const std::string name =
            option.value ? std::string(option.name) + " " + option.value : option.name;
        std::printf("  %-10s  %s\n", name.c_str(), option.help);
    }
}

} // namespace

const Command* FindCommand(const char* name)
{
    for (const Command& command : Commands())
        if (std::strcmp(command.name, name) == 0)
            return &command;
    return nullptr;
}

int RunCommand(const Command& command, int count, char** args)
{
    Arguments arguments;
    std::string error;
    bool options = true;
    for (int i = 0; i < count; ++i)
    {
        char* arg = args[i];
        if (!options || arg[0] != '-' || arg[1] == '\0')
        {
            arguments.operands.push_back(arg);
            continue;
        }
        if (std::strcmp(arg, "--") == 0)
        {
            options = false;
            continue;
        }
        // Help wins over anything else on the line, a bad option before it
        // included.
        if (std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0)
        {
            PrintHelp(command);
            return ExitDone;
        }
        const Option* known = nullptr;
        for (const Option& option : command.options)
            if (std::strcmp(arg, option.name) == 0)
                known = &option;
        if (known == nullptr)
        {
            if (error.empty())
                error = std::string("unknown option '") + arg + "'";
        }
        else if (known->value == nullptr)
            arguments.flags.push_back(arg);
        else if (i + 1 < count)
            arguments.values.emplace_back(arg, args[++i]);
        else if (error.empty())
            error = std::string("option '") + arg + "' needs " + known->value;
    }
    if (error.empty() && arguments.Count() < command.least)
        error = "missing arguments";
    if (error.empty() && command.most >= 0 && arguments.Count() > command.most)
        error = "too many arguments";
    if (!error.empty())
        return UsageError(command.name, error);
    return command.run(arguments);
}

void PrintUsage(std::FILE* out)
{
    std::fprintf(out, "usage: qeltool COMMAND [ARGUMENTS]\n"
                      "       qeltool COMMAND --help\n\n"
                      "commands:\n");
    for (const Command& command : Commands())
        std::fprintf(out, "  %s\n      %s\n", CommandLine(command).c_str(), command.summary);
    std::fprintf(out, "\noptions:\n"
                      "  -h, --help  print this text\n"
                      "  --version   print the library's version and platform\n"
                      "\nexit status: 0 done, 1 failed, 2 wrong command line\n");
}

int UsageError(const char* name, const std::string& message)
{
    std::fprintf(stderr, "qeltool %s: %s\n", name, message.c_str());
    if (const Command* command = FindCommand(name))
        std::fprintf(stderr, "usage: qeltool %s\n", CommandLine(*command).c_str());
    std::fprintf(stderr, "(qeltool %s --help for more)\n", name);
    return ExitUsage;
}

} // namespace qeltool
