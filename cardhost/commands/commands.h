// The commands: each adds its own subcommand and options to the program and, if the command line
// names it, sets what is to be done.
#pragma once

#include <cstdio>
#include <functional>

namespace CLI {
class App;
}

namespace cardhost {

struct CommonOptions;

using Action = std::function<void(const CommonOptions& options, std::FILE* report)>;

void addInfo(CLI::App& program, Action& action);
void addExport(CLI::App& program, Action& action);
void addVerify(CLI::App& program, Action& action);
void addSign(CLI::App& program, Action& action);
void addDecrypt(CLI::App& program, Action& action);
void addAgree(CLI::App& program, Action& action);
void addLogon(CLI::App& program, Action& action);
void addRecord(CLI::App& program, Action& action);
void addReport(CLI::App& program, Action& action);
void addList(CLI::App& program, Action& action);
void addDoctor(CLI::App& program, Action& action);

}  // namespace cardhost
