// Sending a command record: its reply is gathered whole with GET RESPONSE (ISO/IEC 7816-4, 11.7.1).
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "apdu/apdu_commands.h"
#include "apdu/get_response.h"
#include "bytes/byte_texts.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {
namespace {

constexpr DWORD firstReceiveLength = 510;
constexpr DWORD statusWordLength = 2;

// What one object may send: a file of the largest size that is read at all, and more beside it than
// the 41 to 110 commands of an honest acquisition. A hostile card that keeps each single bound must
// not hang the logon process for days by their product.
constexpr int mostCommands = 10'000;

}  // namespace

std::span<const BYTE> CardTransactionHandler::exchange(ApduResult& result,
                                                       const ByteVector& command,
                                                       DWORD announcedLength,
                                                       ReceiveBuffer& buffer) {
    if (commandsSent_ == mostCommands) {
        result.transportErrorCode = SCARD_E_UNEXPECTED;
        return {};
    }
    ++commandsSent_;
    trace([&] {
        return fmt::format("APDU command (hSCard={:X}): {}", hSCard_, bytesToLogHex(command));
    });
    // Zeros, since a failing call may leave a length but no bytes.
    buffer.fill(0);
    DWORD received = announcedLength;
    result.transportErrorCode =
        SCardTransmit(hSCard_, &sendPci, command.data(), static_cast<DWORD>(command.size()),
                      nullptr, buffer.data(), &received);
    trace([&] { return fmt::format("Bytes received: {}", received); });
    const auto length = std::min<std::size_t>(received, buffer.size());
    return std::span<const BYTE>(buffer).first(length);
}

void CardTransactionHandler::SendApduCommand(ApduResult& result) {
    trace("SendApduCommand");
    // quirk: failed-call-parsed. What it left in the buffer counts as a reply, by its length.
    ReceiveBuffer buffer;
    result.applyReply(exchange(result, result.command.encode(), firstReceiveLength, buffer));

    // A card that still says 61xx then is left at that: its status word stands, and is no success.
    for (int sent = 0; result.bytesWaiting() != 0 && sent < mostGetResponses; ++sent) {
        const DWORD announced = result.bytesWaiting() + statusWordLength;
        // quirk: get-response-again. Where no status bytes come, the 61xx before stands and asks.
        const ByteVector getResponse = apduCommands::getResponse(result.SW2).encode();
        result.applyReply(exchange(result, getResponse, announced, buffer));
    }
}

ApduResult CardTransactionHandler::send(ApduCommand command) {
    ApduResult result(std::move(command));
    SendApduCommand(result);
    return result;
}

}  // namespace KelmoraID
