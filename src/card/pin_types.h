// The PINs of a card and the outcome of one VERIFY.
#pragma once

#include <cstdint>

namespace KelmoraID {

/// The platform's PIN identifiers, as this system uses them. Values outside 1 to 4 can occur, since
/// the platform gives them; isValidPinId tells.
enum class PinId : std::uint32_t {
    user = 1,
    administrator = 2,
    unblock = 3,
    signature = 4,
};

/// At least 1 and below 5.
constexpr bool isValidPinId(std::uint32_t pinId) {
    return pinId >= 1 && pinId < 5;
}

struct PinVerifyResult {
    enum Status : std::int32_t { verified = 0, wrong = 1, blocked = 2 };

    std::int32_t attemptsRemaining;  ///< -1 when the card did not say
    Status status;
};

}  // namespace KelmoraID
