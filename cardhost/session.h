// What every command stands on: the options that all of them share, and from these the card, the
// driver and the acquisition, made in the order in which the platform makes them.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "card_source.h"
#include "driver.h"
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
          acquisition(driver, card, trace) {}

    Report report;
    Trace trace;
    ConnectedCard card;  // ahead of the driver: its winscard is the one that the driver finds
    Driver driver;
    Acquisition acquisition;

    static std::filesystem::path driverFile(const CommonOptions& options) {
        return std::filesystem::absolute(options.driver.empty() ? os::usualDriver()
                                                                : os::pathOf(options.driver));
    }
};

}  // namespace cardhost
