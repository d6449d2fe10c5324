#include "virtual_card/commands.h"

namespace virtual_card {

namespace {

Reply stateOf(const Generation& generation, const PinState& pin) {
    if (pin.blocked()) return {{}, generation.blockedQuery};
    return {{}, pin.verified ? sw::ok : sw::triesLeft(pin.triesLeft)};
}

bool isLengthRight(const Generation& generation, const PinRow& pin, std::size_t length) {
    if (generation.pinBlockLength != 0) return length == generation.pinBlockLength;
    return length >= pin.minimumLength && length <= pin.maximumLength;
}

}  // namespace

Reply verify(CardState& card, const Command& command) {
    const Generation& generation = card.generation;
    if (command.p1 != 0x00) return {{}, sw::incorrectP1P2};
    PinState* pin = card.security.findPin(card.files.currentDirectory().identifier, command.p2);
    if (pin == nullptr) return {{}, sw::referenceNotFound};
    if (command.data.empty()) return stateOf(generation, *pin);

    if (!isLengthRight(generation, *pin->row, command.data.size())) return {{}, sw::wrongLength};
    if (pin->blocked()) return {{}, generation.blockedVerify};
    if (card.security.verify(*pin, command.data, generation.pinBlockLength)) return {};
    return {{}, sw::triesLeft(pin->triesLeft)};
}

}  // namespace virtual_card
