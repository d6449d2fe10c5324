// The class path: a command object's conversation with the card. No traffic is logged here, since a
// PIN goes this way.
#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

#include "apdu/apdu.h"
#include "channel/transmit_error.h"
#include "diag/logger.h"

namespace KelmoraID::FINEID {
namespace {

constexpr std::size_t receiveBufferSize = 258;  // 256 data bytes and the status word

// A hostile card that asks for a GET RESPONSE for ever must not hang the logon process.
constexpr int maxRequests = 1'024;

constexpr const char* scope = "Transmit";

// Both lines print the code as a signed number, 0x80100068 as 0x-7fefff98, and are meant to.
[[noreturn]] void throwReconnectFailure(LONG code) {
    logToFile(scope, fmt::format("ERROR: Could not reconnect to card. Error: 0x{:x}",
                                 static_cast<std::int32_t>(code)));
    throw TransmitError(code, "Could not reconnect to card.");
}

[[noreturn]] void throwTransmitFailure(LONG code, bool triedReconnecting) {
    logToFile(scope, fmt::format(
                         "ERROR: Failed to transmit an apdu. Tried reconnecting: {}. Error: 0x{:x}",
                         triedReconnecting, static_cast<std::int32_t>(code)));
    throw TransmitError(code, "Failed to transmit data.");
}

// One request and its reply, with one reconnect when the card was reset. The selection and the
// verification that the reset took are not restored.
ByteVector exchange(SCARDHANDLE hCard, const SCARD_IO_REQUEST& sendPci, const ByteVector& request) {
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
        // A length beyond the buffer names bytes that were never received.
        response.resize(std::min<std::size_t>(received, response.size()));
        return response;
    }
}

}  // namespace

Apdu& Apdu::Transmit(SCARDHANDLE hCard, SCARD_IO_REQUEST sendPci) {
    std::optional<ApduRequest> request = buildRequest();
    for (int sent = 0; request; ++sent) {
        if (sent == maxRequests) throwTransmitFailure(SCARD_E_UNEXPECTED, false);
        const ApduResponse response(exchange(hCard, sendPci, request->bytes));
        Sw1Sw2_ = response.Sw1Sw2;
        request = handleResponse(response);
    }
    if (!success_) success_ = Sw1Sw2_ == 0x9000;
    return *this;
}

}  // namespace KelmoraID::FINEID
