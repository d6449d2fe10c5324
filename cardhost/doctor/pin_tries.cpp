#include "doctor/pin_tries.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "card_types.h"

namespace cardhost::doctor {

namespace {

/// Where a generation keeps the two PINs: the first in the root, the other in the directory of
/// signatures, which is selected in one of two ways (ISO/IEC 7816-4, 11.2.2).
struct PinPlaces {
    int type;
    std::uint8_t authenticationReference;
    std::uint8_t signatureReference;
    std::uint8_t directorySelection;  // P1
};

constexpr PinPlaces pinPlaces[] = {
    {3, 0x11, 0x95, 0x01}, {4, 0x11, 0x82, 0x00}, {5, 0x11, 0x82, 0x00},
    {6, 0x81, 0x81, 0x01}, {7, 0x11, 0x82, 0x00}, {8, 0x03, 0x04, 0x01},
};

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
    const CardGeneration* generation = generationOf(atr);
    if (generation == nullptr) return {};
    const auto* places =
        std::find_if(std::begin(pinPlaces), std::end(pinPlaces),
                     [&](const PinPlaces& row) { return row.type == generation->type; });
    if (places == std::end(pinPlaces)) return {};
    const auto query = [&](int pin, std::uint8_t reference) {
        const std::uint8_t verify[] = {0x00, 0x20, 0x00, reference};
        return triesOf(pin, send(verify));
    };
    std::vector<PinTries> tries;
    send(selectRoot);
    tries.push_back(query(authenticationPin, places->authenticationReference));
    const std::uint8_t selectSignatures[] = {0x00, 0xA4, places->directorySelection, 0x0C, 0x02,
                                             0x50, 0x16};
    const Bytes selected = send(selectSignatures);
    if (selected.size() == 2 && selected[0] == 0x90) {
        tries.push_back(query(signaturePin, places->signatureReference));
    } else {
        PinTries unknown;
        unknown.pin = signaturePin;
        unknown.answer = "no directory of signatures, " + hexSpaced(selected);
        tries.push_back(unknown);
    }
    return tries;
}

}  // namespace cardhost::doctor
