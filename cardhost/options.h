// The command line: the options of all commands, and the command that it names.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"
#include "session.h"

namespace cardhost {

struct CommandLine {
    CommonOptions common;
    Action action;  // empty if there is nothing more to do, because help was asked for
};

/// Throws a Failure (usage) with one line that says what is wrong. Help goes to `help`.
CommandLine parse(std::vector<std::string> arguments, std::FILE* help);

}  // namespace cardhost
