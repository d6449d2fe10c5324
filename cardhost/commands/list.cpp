// cardhost list: the readers and the cards in them.
#include <memory>

#include <nlohmann/json.hpp>

#include "card_types.h"

#include "commands/commands.h"
#include "options.h"
#include "session.h"

namespace cardhost {

namespace {

void printJson(const std::vector<ReaderState>& readers, std::FILE* stream) {
    auto all = nlohmann::ordered_json::array();
    for (const ReaderState& reader : readers) {
        const CardGeneration* generation = generationOf(reader.atr);
        nlohmann::ordered_json one{{"reader", reader.name}, {"status", reader.status}};
        one["atr"] = hex(reader.atr);
        one["type"] = generation == nullptr ? nlohmann::ordered_json()
                                            : nlohmann::ordered_json(generation->type);
        all.push_back(std::move(one));
    }
    fmt::print(stream, "{}\n", all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void list(bool isJson, const CommonOptions& options, std::FILE* stream) {
    const auto readers = readersOf(Session::driverFile(options).parent_path());
    if (isJson) printJson(readers, stream);
    if (readers.empty()) throw Failure(ExitCode::notFound, "no reader is connected");
    if (isJson) return;
    Report report(stream);
    for (const ReaderState& reader : readers) {
        report.heading(reader.name);
        report.row("card", contentText(reader));
        if (!reader.atr.empty()) report.row("ATR", hexSpaced(reader.atr));
    }
}

}  // namespace

void addList(Commands& commands) {
    auto isJson = std::make_shared<bool>(false);
    Command command = commands.add("list", "The readers of this machine, and the cards in them");
    command.flag("--json", *isJson, "For programs: the same as JSON");
    command.does([isJson](const CommonOptions& common, std::FILE* stream) {
        list(*isJson, common, stream);
    });
}

}  // namespace cardhost
