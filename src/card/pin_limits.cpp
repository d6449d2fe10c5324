#include "card/pin_limits.h"

#include "apdu/get_data.h"
#include "card/card_operations.h"
#include "card/thrown_pointer.h"
#include "log/logger.h"

namespace KelmoraID {
namespace {

// GET DATA answers with the PIN's control parameters. Known of them are the places of the limits.
constexpr BYTE pinObjectSelector = 0x81;
constexpr std::size_t maximumOffset = 11;
constexpr std::size_t minimumOffset = 14;

[[noreturn]] void failToReadPinProperties() {
    logDebug("Error: Failed to read PIN properties. Exception.");
    throwPointer("Failed to read PIN properties.");
}

}  // namespace

bool isPinLengthInRange(BYTE minimum, BYTE maximum, std::uint32_t length) {
    return minimum <= length && length <= maximum;
}

std::pair<BYTE, BYTE> CardOperations::readPinProperties(PinId pinId) {
    SelectFineidApplication();
    const BYTE reference = pinReference(pinId, true).value();
    FINEID::GetData getData(pinObjectSelector, reference, false);
    if (!getData.Transmit(hScard, sendPci).success()) failToReadPinProperties();
    const ByteVector& properties = getData.responseData().value();
    if (properties.size() <= minimumOffset) failToReadPinProperties();
    return {properties[maximumOffset], properties[minimumOffset]};
}

bool CardOperations::isPinLengthValid(PinId pinId, std::uint32_t length) {
    // quirk: limits-first. The card is asked whatever the length, also for one that cannot be
    // right.
    const auto [maximum, minimum] = readPinProperties(pinId);
    return isPinLengthInRange(minimum, maximum, length);
}

}  // namespace KelmoraID
