#include "virtual_card/security_state.h"

#include <algorithm>
#include <stdexcept>

namespace virtual_card {

SecurityState::SecurityState(const Generation& generation) {
    for (const PinRow& row : generation.pins) pins_.push_back({&row, row.tries});
}

PinState* SecurityState::findPin(std::uint16_t directory, std::uint8_t reference) {
    for (PinState& pin : pins_) {
        if (pin.row->directory == directory && pin.row->reference == reference) return &pin;
    }
    return nullptr;
}

PinState* SecurityState::findPinByDataReference(std::uint16_t directory, std::uint8_t reference) {
    for (PinState& pin : pins_) {
        if (pin.row->directory == directory && pin.row->dataReference == reference) return &pin;
    }
    return nullptr;
}

PinState& SecurityState::pinOf(PinRole role) {
    for (PinState& pin : pins_) {
        if (pin.row->role == role) return pin;
    }
    throw std::logic_error("a key names a PIN that the card's row lacks");
}

bool SecurityState::verify(PinState& pin, ByteView value, std::size_t blockLength) {
    if (pin.blocked()) return false;
    Bytes expected(pin.row->value.begin(), pin.row->value.end());
    expected.resize(std::max(blockLength, expected.size()), 0x00);
    pin.verified = std::equal(value.begin(), value.end(), expected.begin(), expected.end());
    pin.triesLeft = pin.verified ? pin.row->tries : pin.triesLeft - 1;
    return pin.verified;
}

void SecurityState::reset() {
    for (PinState& pin : pins_) pin.verified = false;
    environment = {};
}

}  // namespace virtual_card
