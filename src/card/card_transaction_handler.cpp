#include "card/card_transaction_handler.h"

#include <fmt/format.h>

#include "channel/protocol_control.h"
#include "log/logger.h"

namespace KelmoraID {
namespace {

// Reported while the object is made, before the platform is asked about the handle.
SCARDHANDLE reportedIfZero(SCARDHANDLE hSCard) {
    if (hSCard == 0) {
        logError(
            "CardTransactionHandler SCARDHANDLE hSCard_ = 0 is illegal value for proper "
            "communication with any card!");
    }
    return hSCard;
}

}  // namespace

CardTransactionHandler::CardTransactionHandler(SCARDHANDLE hSCard)
    : hSCard_(reportedIfZero(hSCard)), sendPci(protocolControlOf(hSCard)) {}

CardTransactionHandler::~CardTransactionHandler() {
    if (!transactionOpen) return;
    transactionOpen = false;
    const LONG code = SCardEndTransaction(hSCard_, SCARD_LEAVE_CARD);
    logWarning(
        fmt::format("Transaction open in destruction! End transaction properly before destruction! "
                    "Force ended with errorcode: {:x}",
                    static_cast<std::uint32_t>(code)));
}

ApduResult CardTransactionHandler::beginTransaction() {
    const LONG code = SCardBeginTransaction(hSCard_);
    if (code != 0) {
        logError(fmt::format("SCardBeginTransaction failed error code hex {:x}",
                             static_cast<std::uint32_t>(code)));
    } else {
        transactionOpen = true;
    }
    return ApduResult(code);
}

ApduResult CardTransactionHandler::endTransaction() {
    if (!transactionOpen) return ApduResult(LONG{0});
    transactionOpen = false;  // Also when the call fails.
    return ApduResult(SCardEndTransaction(hSCard_, SCARD_LEAVE_CARD));
}

void CardTransactionHandler::emitTrace(const std::string& line) {
    logDebug(line);
}

}  // namespace KelmoraID
