// cardhost verify: a PIN, and the attempts that remain.
#include <memory>

#include <fmt/format.h>

#include "commands/commands.h"
#include "options.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

namespace {

struct VerifyOptions {
    unsigned pinId = 1;
    PinOptions pin;
};

void verify(const VerifyOptions& options, const CommonOptions& common, std::FILE* stream) {
    Session session(common, stream);
    verifyPin(session.acquisition, options.pinId, options.pin);
    session.report.line(fmt::format("PIN {} is right.", pinText(options.pinId)));
}

}  // namespace

void addVerify(Commands& commands) {
    auto options = std::make_shared<VerifyOptions>();
    Command command = commands.add(
        "verify", "Present a PIN to the card and tell the result and the attempts that remain");
    command
        .option("--pin-id", options->pinId,
                "Which PIN: 1 authentication, 2 administrator, 3 unblock, 4 signature")
        .between(1, 4)
        .showDefault()
        .typeName("N");
    addPinOptions(command, options->pin);
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        verify(*options, common, stream);
    });
}

}  // namespace cardhost
