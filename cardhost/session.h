// What every command stands on: the options that all of them share, and from these the card, the
// driver and the acquisition, made in the order in which the platform makes them.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "card_source.h"
#include "card_types.h"
#include "driver.h"
#include "exit_codes.h"
#include "report.h"
#include "trace.h"

namespace cardhost {

struct CommonOptions {
    std::string driver;  // empty: os::usualDriver()
    CardChoice card;
    bool trace = false;
    recording::Conversation* kept = nullptr;  // where the conversation goes that a command keeps
    std::function<void(const std::string& call)> beforeCall;  // is told of each call ahead of it
};

class Session {
public:
    Session(const CommonOptions& options, std::FILE* reportStream)
        : report(reportStream),
          trace(options.trace, options.kept, options.beforeCall),
          card(options.card, driverFile(options).parent_path(), trace),
          driver(driverFile(options)),
          acquisition(acquire(driver, card, trace)) {
        if (trace.isOn() && isUnseen(card, trace)) throw Failure(ExitCode::unseen, unseen);
    }

    Report report;
    Trace trace;
    ConnectedCard card;  // ahead of the driver: its winscard is the one that the driver finds
    Driver driver;
    Acquisition acquisition;

    static std::filesystem::path driverFile(const CommonOptions& options) {
        return std::filesystem::absolute(options.driver.empty() ? os::usualDriver()
                                                                : os::pathOf(options.driver));
    }

private:
    static Acquisition acquire(const Driver& driver, ConnectedCard& card, const Trace& trace) try {
        return Acquisition(driver, card, trace);
    } catch (const Refusal& refusal) {
        // A card of no known type is refused by its ATR, ahead of any command.
        if (isUnseen(card, trace) && generationOf(card.shownAtr()) != nullptr) {
            throw Failure(ExitCode::unseen, fmt::format("{}; {}", unseen, refusal.what()));
        }
        throw;
    }

    /// Whether the commands should have come by, and none has: no acquisition goes without one.
    static bool isUnseen(const ConnectedCard& card, const Trace& trace) {
        return (trace.isOn() || card.isInProcess()) && trace.exchanges() == 0;
    }

    static constexpr const char* unseen =
        "the driver's commands to the card cannot be seen: it has not taken winscard from the "
        "folder virtual-card beside this program";
};

}  // namespace cardhost
