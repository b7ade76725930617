// qeltool's command line. Every command states its arguments and options
// once, in a Command; the parsing, the usage texts and the exit codes follow
// from that, the same for every command:
//
//   qeltool CMD -h, qeltool CMD --help   the command's usage on standard output, exit 0
//   a wrong command line                  the message and the usage line on standard
//                                         error, exit 2
//   a failure (a file that cannot be read, a path under no mount...)
//                                         "FILE: message" on standard error, exit 1
//
// An argument that starts with '-' is an option, except "-" alone; "--" ends
// the options, so that `qeltool resolve -- --help` resolves a path named
// "--help".
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace qeltool
{

enum ExitCode
{
    ExitDone = 0,
    ExitFailed = 1,
    ExitUsage = 2,
};

// A flag a command takes, such as "--strict": listed in its Command's
// options, asked for with Arguments::Has. An option with a value ("-o
// FILE") takes the argument after it, asked for with Arguments::Value.
struct Option
{
    const char* name;
    const char* help;            // one line for the usage text
    const char* value = nullptr; // the value's name in the usage text
};

// A command's arguments once its options are taken out.
struct Arguments
{
    std::vector<char*> operands;
    std::vector<std::string> flags;                          // the flags given, by name
    std::vector<std::pair<std::string, std::string>> values; // options with values

    // The value of the option `name`, the last one given; null without.
    const char* Value(const char* name) const
    {
        const char* value = nullptr;
        for (const auto& option : values)
            if (option.first == name)
                value = option.second.c_str();
        return value;
    }

    int Count() const { return int(operands.size()); }
    char** Operands() { return operands.data(); }
    bool Has(const char* flag) const
    {
        return std::find(flags.begin(), flags.end(), flag) != flags.end();
    }
};

struct Command
{
    const char* name;     // "check"
    const char* synopsis; // its operands: "FILE...", "PATH RATE [SECONDS]"
    int least;            // operands it needs
    int most;             // operands it takes; -1: no limit
    int (*run)(Arguments& arguments);
    const char* summary; // what it does, for `qeltool --help`
    const char* details; // more, for its own --help; may be empty
    std::vector<Option> options = {};
};

// The tool: argv as main has it, every argument UTF-8 (platform/entry_*.cpp).
int Main(int argc, char** argv);

// Every command of the tool, in the order `qeltool --help` lists them
// (main.cpp). cmake/QeltoolTest.cmake runs each of them and must be told how
// a new one fails.
const std::vector<Command>& Commands();
const Command* FindCommand(const char* name);

// Parses a command's arguments (those after its name) and runs it, or prints
// its usage.
int RunCommand(const Command& command, int count, char** args);
// The tool's own usage: the commands with their summaries.
void PrintUsage(std::FILE* out);
// A usage error found by the command itself (a rate that is not a number):
// "qeltool NAME: message" and the usage line on standard error; returns 2.
int UsageError(const char* name, const std::string& message);

} // namespace qeltool
