#include "pin_query.h"

#include <fmt/format.h>

#include "doctor/pin_tries.h"
#include "exit_codes.h"
#include "status_names.h"

namespace cardhost {

std::vector<doctor::PinTries> askPinTries(const ConnectedCard& card, const Trace& trace) {
    trace.entryPoint("Query of the PINs' tries, past the driver");
    auto tries = doctor::pinTries(card.atr(), [&](ByteView command) {
        recording::Reply reply = card.exchange(command);
        if (reply.failure != 0) {
            throw Failure(ExitCode::notFound,
                          "the card does not answer: " + statusText(reply.failure));
        }
        return std::move(reply.bytes);
    });
    trace.result(0);
    return tries;
}

std::string triesText(const doctor::PinTries& tries) {
    using State = doctor::PinTries::State;
    switch (tries.state) {
        case State::open:
            return fmt::format("{} tries left", tries.left);
        case State::verified:
            return "verified";
        case State::blocked:
            return "blocked";
        default:
            return "tries left not told";
    }
}

}  // namespace cardhost
