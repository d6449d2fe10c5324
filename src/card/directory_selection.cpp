// The ladder of SELECT forms by which a directory is found on every generation of card.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "apdu/apdu_commands.h"
#include "bytes/byte_texts.h"
#include "card/card_file_system.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {
namespace {

using apduCommands::withControlParameters;

constexpr std::uint16_t incorrectParameters = 0x6A86;

// A rung of the ladder, by the P1 of its SELECT (ISO/IEC 7816-4, 11.2.2) and its trace text.
struct Rung {
    BYTE P1;
    const char* text;
};
constexpr Rung organisationCards{0x01, "(1) SOTE&ORG for:"};
constexpr Rung testCards{0x09, "(2) our&VRK:"};
constexpr Rung citizenCards{0x00, "(3) Citizen/CosmoX for:"};

std::string outcomeOf(const Rung& rung, const ApduResult& result) {
    return fmt::format(
        "{} Identifier: '{}'; P1: '{:#x}'; P2: '{:#x}'; result.success: '{}'; "
        "result.Sw1Sw2: '{:#x}'.",
        rung.text, bytesToLogHex(result.command.data), rung.P1, withControlParameters,
        result.success(), result.Sw1Sw2());
}

}  // namespace

ApduResult CardTransactionHandler::selectDF(const ByteVector& path) {
    const auto select = [&](const Rung& rung, ByteVector identifier) {
        ApduResult tried =
            send(apduCommands::select(rung.P1, withControlParameters, std::move(identifier)));
        trace([&] { return outcomeOf(rung, tried); });
        return tried;
    };
    // The identifier at a position: one byte, if only one is left.
    const auto identifierAt = [&](std::size_t position) {
        const std::size_t length = std::min(identifierLength, path.size() - position);
        const auto first = path.begin() + static_cast<std::ptrdiff_t>(position);
        return ByteVector(first, first + static_cast<std::ptrdiff_t>(length));
    };

    trace("selectDF");
    ApduResult result;  // of an empty path: no success
    for (std::size_t position = 0; position < path.size(); position += identifierLength) {
        trace("Checking Sote and ORG cards.");
        result = select(organisationCards, identifierAt(position));
        if (!result.success()) break;
    }
    if (!result.success() && result.Sw1Sw2() == incorrectParameters) {
        trace("Checking \"our test cards\" or VRK cards.");
        result = select(testCards, path);
    }
    // quirk: third-form-after-6a82. With that bit set, 6A82 opens this rung as well as 6A86.
    if (!result.success() && (result.Sw1Sw2() | 0x0004) == incorrectParameters) {
        trace("Checking Citizen or Cosmo X cards.");
        for (std::size_t position = 0; position < path.size(); position += identifierLength) {
            result = select(citizenCards, identifierAt(position));
            if (!result.success()) break;
        }
    }
    trace("selectDF finished.");
    return result;
}

ApduResult CardTransactionHandler::selectRootDir() {
    trace("selectRootDir");
    return send(apduCommands::selectRootDir());
}

}  // namespace KelmoraID
