// cardhost list: the readers and the cards in them.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "card_types.h"
#include "commands/commands.h"
#include "session.h"
#include "status_names.h"

namespace cardhost {

namespace {

std::string cardText(const ReaderState& reader) {
    if (reader.status == SCARD_E_NO_SMARTCARD || reader.status == SCARD_W_REMOVED_CARD) {
        return "no card";
    }
    if (reader.status != SCARD_S_SUCCESS) return statusText(static_cast<DWORD>(reader.status));
    const CardGeneration* generation = generationOf(reader.atr);
    return generation == nullptr ? "a card that is no known FINEID card"
                                 : fmt::format("FINEID card of type {}, {}", generation->type,
                                               generation->description);
}

void list(const CommonOptions& options, std::FILE* stream) {
    Report report(stream);
    const auto readers = readersOf(Session::driverFile(options).parent_path());
    if (readers.empty()) throw Failure(ExitCode::notFound, "no reader is connected");
    for (const ReaderState& reader : readers) {
        report.heading(reader.name);
        report.row("card", cardText(reader));
        if (!reader.atr.empty()) report.row("ATR", hexSpaced(reader.atr));
    }
}

}  // namespace

void addList(CLI::App& program, Action& action) {
    program.add_subcommand("list", "The readers of this machine, and the cards in them")
        ->callback([&action] { action = list; });
}

}  // namespace cardhost
