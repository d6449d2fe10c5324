// VERIFY as a command record. Held ready: PINs go by command objects, which keep out of the log.
#include <fmt/format.h>

#include "apdu/apdu_commands.h"
#include "card/card_transaction_handler.h"
#include "log/logger.h"

namespace KelmoraID {

ApduResult CardTransactionHandler::verifyPIN1(const ByteVector& pin) {
    trace("verifyPIN1");
    return send(apduCommands::verifyPIN1(pin));
}

ApduResult CardTransactionHandler::verifyPIN2(const ByteVector& pin) {
    trace("verifyPIN2");
    // The two failures go to the log whether or not the trace is on.
    const ApduResult root = selectRootDir();
    if (!root.success()) {
        logDebug(fmt::format("{}{:x}", "On selecting root MF directory: ", root.Sw1Sw2()));
        return root;
    }
    const ApduResult esign = send(apduCommands::selectEsign());
    if (!esign.success()) {
        // quirk: esign-without-blank. Ahead of the number, unlike the line above.
        logDebug(fmt::format("{}{:x}", "On selecting ESIGN directory", esign.Sw1Sw2()));
        return esign;
    }
    return send(apduCommands::verifyPIN2(pin));
}

}  // namespace KelmoraID
