// VERIFY on the record path. Held ready: no operation of the system calls these.
#include <fmt/format.h>

#include "apdu/command_factories.h"
#include "channel/card_transaction_handler.h"
#include "diag/logger.h"

namespace KelmoraID {

ApduResult CardTransactionHandler::verifyPIN1(const ByteVector& pin) {
    trace("verifyPIN1");
    return send(commands::verifyPIN1(pin));
}

ApduResult CardTransactionHandler::verifyPIN2(const ByteVector& pin) {
    trace("verifyPIN2");
    // The two failures go to the log whether or not the trace is on.
    const ApduResult root = selectRootDir();
    if (!root.success()) {
        logDebug(fmt::format("{}{:x}", "On selecting root MF directory: ", root.Sw1Sw2()));
        return root;
    }
    const ApduResult esign = send(commands::selectEsign());
    if (!esign.success()) {
        // Meant so: no blank before the number.
        logDebug(fmt::format("{}{:x}", "On selecting ESIGN directory", esign.Sw1Sw2()));
        return esign;
    }
    return send(commands::verifyPIN2(pin));
}

}  // namespace KelmoraID
