#include "doctor/real_machine.h"

#include <algorithm>

#include <fmt/format.h>

#include "doctor/card_look.h"
#include "files.h"

namespace cardhost::doctor {

std::string RealMachine::driverFile() const {
    return shown(Session::driverFile(options_));
}

Readers RealMachine::readers() {
    Readers readers;
    readers.areReal = !options_.card.isChosen;
    const std::filesystem::path folder = Session::driverFile(options_).parent_path();
    if (options_.card.isChosen) {
        // One that cannot be had is a mistake in the command, and not the machine's.
        const Trace trace(false);
        const ConnectedCard card(options_.card, folder, trace);
        readers.list.push_back({card.reader(), SCARD_S_SUCCESS, card.atr()});
        return readers;
    }
    try {
        readers.list = readersOf(folder);
    } catch (const Failure& failure) {
        readers.failure = failure.what();
        return readers;
    }
    const std::string wanted = options_.card.reader.value_or("");
    if (wanted.empty()) return readers;
    std::erase_if(readers.list, [&](const ReaderState& reader) { return reader.name != wanted; });
    if (readers.list.empty()) {
        throw Failure(ExitCode::notFound, fmt::format("no reader '{}'", wanted));
    }
    return readers;
}

CardFacts RealMachine::card(const std::string& reader) {
    CommonOptions options = options_;
    if (!options_.card.isChosen) options.card.reader = reader;
    return lookAtCard(options);
}

}  // namespace cardhost::doctor
