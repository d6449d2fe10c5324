#include "apdu/apdu_result.h"

#include <utility>

#include "log/logger.h"

namespace KelmoraID {

ApduResult::ApduResult(ApduCommand firstCommand) : command(std::move(firstCommand)) {}

ApduResult::ApduResult(LONG pcscCode) : transportErrorCode(pcscCode) {}

void ApduResult::applyReply(std::span<const BYTE> reply) {
    if (reply.size() < 2) {
        transportErrorCode = SCARD_E_UNEXPECTED;
        logError("APDU response bytes contained less than 2 bytes");
        return;
    }
    const auto data = reply.first(reply.size() - 2);
    SW1 = reply[reply.size() - 2];
    SW2 = reply[reply.size() - 1];
    responseData.insert(responseData.end(), data.begin(), data.end());
    status = lookupStatusWord(Sw1Sw2());
    // quirk: row-replaces-code. With 0 too: what the card says counts for more than the transport.
    transportErrorCode = static_cast<LONG>(status.platformCode);
}

bool ApduResult::success() const {
    return transportErrorCode == 0 && Sw1Sw2() == 0x9000;
}

std::uint32_t ApduResult::bytesWaiting() const {
    if (SW1 != 0x61) return 0;
    return SW2 == 0 ? 256 : SW2;
}

std::uint16_t ApduResult::Sw1Sw2() const {
    return static_cast<std::uint16_t>(SW1 << 8 | SW2);
}

int ApduResult::verifyOutcome() {
    if (Sw1Sw2() == 0x6984) {
        transportErrorCode = SCARD_W_CHV_BLOCKED;
        return 0;
    }
    if ((Sw1Sw2() & 0xFFF0) == 0x63C0) {
        transportErrorCode = SCARD_W_WRONG_CHV;
        return SW2 & 0x0F;
    }
    return -1;
}

}  // namespace KelmoraID
