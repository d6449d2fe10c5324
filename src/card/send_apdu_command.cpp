// Sending a command record: its reply is gathered whole with GET RESPONSE (ISO/IEC 7816-4, 11.7.1).
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "apdu/apdu_commands.h"
#include "bytes/byte_texts.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {
namespace {

constexpr DWORD firstReceiveLength = 510;
constexpr DWORD statusWordLength = 2;

// What one command may gather: no FINEID file is larger than a READ BINARY can address. A hostile
// card that says 61xx for ever must neither hang the logon process nor fill its memory.
constexpr std::size_t maxGathered = 65'536;
constexpr int maxWithoutData = 1'024;

}  // namespace

std::span<const BYTE> CardTransactionHandler::exchange(ApduResult& result,
                                                       const ByteVector& command,
                                                       DWORD announcedLength,
                                                       ReceiveBuffer& buffer) {
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
    const std::size_t standing = result.responseData.size();
    // quirk: failed-call-parsed. What it left in the buffer counts as a reply, by its length.
    ReceiveBuffer buffer;
    result.applyReply(exchange(result, result.command.encode(), firstReceiveLength, buffer));

    int withoutData = 0;
    while (result.bytesWaiting() != 0) {
        const std::size_t gathered = result.responseData.size();
        if (gathered - standing >= maxGathered || withoutData >= maxWithoutData) return;

        const DWORD announced = result.bytesWaiting() + statusWordLength;
        const std::span<const BYTE> reply =
            exchange(result, apduCommands::getResponse(result.SW2).encode(), announced, buffer);
        // Without new status bytes there is nothing to go on from: the record stays as it stands. A
        // failed call brings none, whatever length it leaves.
        const bool failed = result.transportErrorCode != 0;
        if (failed && reply.size() >= statusWordLength) return;
        result.applyReply(reply);
        if (reply.size() < statusWordLength) return;
        if (result.responseData.size() == gathered) ++withoutData;
    }
}

ApduResult CardTransactionHandler::send(ApduCommand command) {
    ApduResult result(std::move(command));
    SendApduCommand(result);
    return result;
}

}  // namespace KelmoraID
