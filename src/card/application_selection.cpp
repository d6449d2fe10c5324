// Finding the application by its name: SELECT with one identifier, then with the other.
#include <fmt/format.h>

#include <span>

#include "apdu/apdu_commands.h"
#include "card/card_file_system.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {
namespace {

constexpr BYTE byApplicationIdentifier = 0x04;
constexpr BYTE withResponse = 0x00;

ApduCommand selectApplication(std::span<const BYTE> identifier) {
    return apduCommands::select(byApplicationIdentifier, withResponse,
                                ByteVector(identifier.begin(), identifier.end()));
}

std::string outcomeOf(const char* which, const ApduResult& result) {
    return fmt::format(
        "{} selectApplication: P1: '{:#x}'; P2: '{:#x}'; result.success: '{}'; "
        "result.Sw1Sw2: '{:#x}'.",
        which, byApplicationIdentifier, withResponse, result.success(), result.Sw1Sw2());
}

}  // namespace

ApduResult CardTransactionHandler::selectFINEIDApplication() {
    trace("selectFINEIDApplication");
    ApduResult result = send(selectApplication(FineidAid));
    trace([&] { return outcomeOf("Original", result); });
    if (!result.success()) {
        result = send(selectApplication(CosmoXAid));
        trace([&] { return outcomeOf("Cosmo X", result); });
    }
    trace([&] {
        return fmt::format("selectFINEIDApplication {}.",
                           result.success() ? "succeeded" : "failed");
    });
    if (!result.success()) {
        trace([&] {
            return fmt::format("selectFINEIDApplication failed. Error code: {:x}",
                               result.transportErrorCode);
        });
    }
    // Which application answered is not noted: every access finds its way anew.
    return result;
}

}  // namespace KelmoraID
