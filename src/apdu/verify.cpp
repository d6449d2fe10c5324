#include "apdu/verify.h"

#include <utility>

#include "profiles/card_profiles.h"

namespace KelmoraID::FINEID {
namespace {

// Through a volatile pointer, so that the stores stay although nobody reads the bytes again.
void wipe(ByteVector& secret) {
    volatile BYTE* bytes = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) bytes[i] = 0;
    secret.clear();
}

}  // namespace

Verify::Verify(BYTE reference, CardType cardType, std::optional<ByteVector> pin)
    : P2_(static_cast<BYTE>(reference + profileOf(cardType).verifyOffset)), data_(std::move(pin)) {}

std::optional<ApduRequest> Verify::handleResponse(const ApduResponse& response) {
    if (data_) wipe(*data_);

    success_ = true;  // The card gave an answer to a PIN, right or wrong.
    const std::uint16_t word = response.Sw1Sw2;
    if (word == 0x9000) {
        verified_ = true;
    } else if (word == 0x6300) {
        // A wrong PIN, and the card does not say how many tries are left.
    } else if (word == 0x6983) {
        attemptsRemaining_ = 0;  // quirk: 6983-is-not-blocked. Unlike 6984.
    } else if (word == 0x6984) {
        blocked_ = true;
        attemptsRemaining_ = 0;
    } else if ((word & 0xFFF0) == 0x63C0) {
        attemptsRemaining_ = word & 0x000F;
        // quirk: 63c0-to-a-pin. Blocked to a query alone; to a PIN it is one more wrong PIN.
        if (attemptsRemaining_ == 0 && !data_) blocked_ = true;
    } else {
        success_ = false;
    }
    return std::nullopt;
}

ApduRequest Verify::buildRequest() {
    // quirk: pin-copies. The request holds a copy of its own, which nobody wipes.
    return ApduRequest(0x00, 0x20, 0x00, P2_, data_, std::nullopt);
}

}  // namespace KelmoraID::FINEID
