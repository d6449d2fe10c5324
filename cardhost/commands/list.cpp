// cardhost list: the readers and the cards in them.
#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "session.h"

namespace cardhost {

namespace {

void list(const CommonOptions& options, std::FILE* stream) {
    Report report(stream);
    const auto readers = readersOf(Session::driverFile(options).parent_path());
    if (readers.empty()) throw Failure(ExitCode::notFound, "no reader is connected");
    for (const ReaderState& reader : readers) {
        report.heading(reader.name);
        report.row("card", contentText(reader));
        if (!reader.atr.empty()) report.row("ATR", hexSpaced(reader.atr));
    }
}

}  // namespace

void addList(CLI::App& program, Action& action) {
    program.add_subcommand("list", "The readers of this machine, and the cards in them")
        ->callback([&action] { action = list; });
}

}  // namespace cardhost
