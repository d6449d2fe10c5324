#include "channel/reconnecting_exchange.h"

#include <algorithm>
#include <cstdint>

#include "channel/transmit_error.h"
#include "log/logger.h"

namespace KelmoraID {
namespace {

constexpr std::size_t receiveBufferSize = 258;  // 256 data bytes and the status word
// quirk: grown-reply. A reply grows by zeros to a stated length that cannot be, by so many that its
// status word is 0000 whatever the buffer ends with, and no further than this.
constexpr std::size_t shortestGrown = receiveBufferSize + 2;
constexpr std::size_t longestReply = 512;

constexpr const char* scope = "Transmit";

// quirk: signed-codes. A PC/SC code is a LONG: both lines print 0x80100068 as 0x-7fefff98.
[[noreturn]] void throwReconnectFailure(LONG code) {
    logToFile(scope, "ERROR: Could not reconnect to card. Error: 0x{:x}",
              static_cast<std::int32_t>(code));
    throw TransmitError(code, "Could not reconnect to card.");
}

[[noreturn]] void throwTransmitFailure(LONG code, bool triedReconnecting) {
    logToFile(scope, "ERROR: Failed to transmit an apdu. Tried reconnecting: {}. Error: 0x{:x}",
              triedReconnecting, static_cast<std::int32_t>(code));
    throw TransmitError(code, "Failed to transmit data.");
}

}  // namespace

ByteVector exchangeWithReconnect(SCARDHANDLE hCard, const SCARD_IO_REQUEST& sendPci,
                                 const ByteVector& request) {
    bool triedReconnecting = false;
    for (;;) {
        ByteVector response(receiveBufferSize);
        DWORD received = static_cast<DWORD>(response.size());
        const LONG code =
            SCardTransmit(hCard, &sendPci, request.data(), static_cast<DWORD>(request.size()),
                          nullptr, response.data(), &received);
        if (code == SCARD_W_RESET_CARD && !triedReconnecting) {
            const LONG reconnected = SCardReconnect(hCard, SCARD_SHARE_SHARED, sendPci.dwProtocol,
                                                    SCARD_LEAVE_CARD, nullptr);
            if (reconnected != 0) throwReconnectFailure(reconnected);
            triedReconnecting = true;
            continue;
        }
        if (code != 0) throwTransmitFailure(code, triedReconnecting);
        // A reply without a status word is none.
        if (received < 2) throwTransmitFailure(SCARD_E_UNEXPECTED, triedReconnecting);
        response.resize(received <= receiveBufferSize
                            ? received
                            : std::clamp<std::size_t>(received, shortestGrown, longestReply));
        return response;
    }
}

void throwEndlessConversation() {
    throwTransmitFailure(SCARD_E_UNEXPECTED, false);
}

}  // namespace KelmoraID
