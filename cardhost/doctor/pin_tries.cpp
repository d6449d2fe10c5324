#include "doctor/pin_tries.h"

#include <fmt/format.h>

#include "profiles/card_profiles.h"

namespace cardhost::doctor {

namespace {

constexpr std::uint8_t selectRoot[] = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0x3F, 0x00};

PinTries triesOf(int pin, const Bytes& reply) {
    PinTries tries;
    tries.pin = pin;
    tries.answer = hexSpaced(reply);
    if (reply.size() != 2) return tries;
    const int word = reply[0] << 8 | reply[1];
    if (word == 0x9000) {
        tries.state = PinTries::State::verified;
    } else if (word == 0x6983 || word == 0x6984 || word == 0x63C0) {
        tries.state = PinTries::State::blocked;
    } else if ((word & 0xFFF0) == 0x63C0) {
        tries.state = PinTries::State::open;
        tries.left = word & 0x0F;
    }
    return tries;
}

}  // namespace

std::vector<PinTries> pinTries(ByteView atr, const SendCommand& send) {
    constexpr int authenticationPin = 1;
    constexpr int signaturePin = 4;
    const KelmoraID::CardProfile* card = KelmoraID::findCardByAtr(atr);
    if (card == nullptr) return {};
    const auto query = [&](int pin, std::uint8_t reference) {
        const auto p2 = static_cast<std::uint8_t>(reference + card->verifyOffset);
        const std::uint8_t verify[] = {0x00, 0x20, 0x00, p2};
        return triesOf(pin, send(verify));
    };
    std::vector<PinTries> tries;
    send(selectRoot);
    tries.push_back(query(authenticationPin, card->userPin));
    // The PIN of signatures stands in a directory of its own (ISO/IEC 7816-4, 11.2.2).
    const std::uint8_t under = card->selectsEsignUnderMasterFile ? 0x00 : 0x01;
    const std::uint8_t selectSignatures[] = {0x00, 0xA4, under, 0x0C, 0x02, 0x50, 0x16};
    const Bytes selected = send(selectSignatures);
    if (selected.size() == 2 && selected[0] == 0x90) {
        tries.push_back(query(signaturePin, card->signaturePin));
    } else {
        PinTries unknown;
        unknown.pin = signaturePin;
        unknown.answer = "no directory of signatures, " + hexSpaced(selected);
        tries.push_back(unknown);
    }
    return tries;
}

}  // namespace cardhost::doctor
