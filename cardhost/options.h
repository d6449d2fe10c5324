// The command line: what the commands say of their options, the options of all commands, and what
// is to be done. The library that does the work is known to options.cpp alone: its header costs a
// compiler seconds in each file.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "session.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace cardhost {

using Action = std::function<void(const CommonOptions& options, std::FILE* report)>;

/// An option of a command. What is said of it can be said in a chain.
class Option {
public:
    explicit Option(CLI::Option* option) : option_(option) {}

    Option& required();
    /// What the help calls the value: "FILE".
    Option& typeName(const char* name);
    /// The help tells the value that the variable has now.
    Option& showDefault();
    /// Only a number from the lowest to the highest.
    Option& between(int lowest, int highest);
    Option& oneOf(const std::vector<std::string>& values);
    /// May be given more than once, each time with one value.
    Option& repeatable();
    /// May be given once, although what takes it could hold more.
    Option& once();
    /// Not together with the other one.
    Option& excludes(const Option& other);

private:
    CLI::Option* option_;
};

/// A command, while its options are added. The variables stay until the command line was read.
class Command {
public:
    Command(CLI::App& command, Action& chosen) : command_(command), chosen_(chosen) {}

    /// The names as in "-o,--out".
    Option option(const char* names, std::string& value, const char* description);
    Option option(const char* names, unsigned& value, const char* description);
    Option option(const char* names, int& value, const char* description);
    Option option(const char* names, std::vector<std::string>& values, const char* description);
    Option flag(const char* names, bool& value, const char* description);
    /// What is to be done if the command line names this command.
    void does(Action action);

private:
    CLI::App& command_;
    Action& chosen_;
};

class Commands {
public:
    Commands(CLI::App& program, Action& chosen) : program_(program), chosen_(chosen) {}

    Command add(const char* name, const char* description);

private:
    CLI::App& program_;
    Action& chosen_;
};

struct CommandLine {
    CommonOptions common;
    Action action;  // empty if there is nothing more to do, because help was asked for
};

/// Throws a Failure (usage) with one line that says what is wrong. Help goes to `help`.
CommandLine parse(std::vector<std::string> arguments, std::FILE* help);

}  // namespace cardhost
