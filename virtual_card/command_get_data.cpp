#include <algorithm>
#include <array>

#include "virtual_card/commands.h"
#include "virtual_card/tlv.h"

namespace virtual_card {

namespace {

// The extended header list for a PIN's properties (ISO/IEC 7816-4, 8.5): 4D { 70 { BF81xx { 7F41 80
// } } }. The tag BF81xx spans three bytes and ends with the number of the PIN.
constexpr std::array<std::uint8_t, 6> listHead{0x4D, 0x09, 0x70, 0x07, 0xBF, 0x81};
constexpr std::array<std::uint8_t, 4> listTail{0x03, 0x7F, 0x41, 0x80};
constexpr std::size_t listSize = listHead.size() + 1 + listTail.size();

bool isPinPropertyList(ByteView data) {
    return data.size() == listSize && std::equal(listHead.begin(), listHead.end(), data.begin()) &&
           std::equal(listTail.begin(), listTail.end(), data.begin() + listHead.size() + 1);
}

}  // namespace

Reply getData(CardState& card, const Command& command) {
    if (!card.generation.knowsGetData) return {{}, sw::instructionNotSupported};
    if (command.p1 != 0x3F || command.p2 != 0xFF) return {{}, sw::incorrectP1P2};
    if (!isPinPropertyList(command.data)) return {{}, sw::incorrectData};
    const std::uint8_t reference = command.data[listHead.size()];
    const PinState* pin =
        card.security.findPinByDataReference(card.files.currentDirectory().identifier, reference);
    if (pin == nullptr) return {{}, sw::referenceNotFound};

    // The maximum lands at offset 11 of the reply, the minimum at offset 14.
    Bytes properties;
    append(properties, tlv(0x80, Bytes{pin->row->maximumLength}));
    append(properties, tlv(0x81, Bytes{pin->row->minimumLength}));
    append(properties, tlv(0x9A, Bytes{pin->row->tries}));
    append(properties, tlv(0x9B, Bytes{static_cast<std::uint8_t>(pin->triesLeft)}));
    Bytes inner{0x7F};
    append(inner, tlv(0x41, properties));
    Bytes object{0xBF, 0x81};
    append(object, tlv(reference, inner));
    return {tlv(0x70, object)};
}

}  // namespace virtual_card
