// Apdu::Transmit: a command object's conversation with the card.
#include "apdu/apdu.h"
#include "apdu/get_response.h"
#include "channel/reconnecting_exchange.h"

namespace KelmoraID::FINEID {
namespace {

// A hostile card that asks for a GET RESPONSE for ever must not hang the logon process.
constexpr int mostRequests = 1 + mostGetResponses;

}  // namespace

Apdu& Apdu::Transmit(SCARDHANDLE hCard, SCARD_IO_REQUEST sendPci) {
    std::optional<ApduRequest> request = buildRequest();
    for (int sent = 0; request; ++sent) {
        if (sent == mostRequests) throwEndlessConversation();
        const ApduResponse response(exchangeWithReconnect(hCard, sendPci, request->bytes));
        Sw1Sw2_ = response.Sw1Sw2;
        request = handleResponse(response);
    }
    if (!success_) success_ = Sw1Sw2_ == 0x9000;
    return *this;
}

}  // namespace KelmoraID::FINEID
