#include "channel/reader_connection.h"

#include <fmt/format.h>

#include "log/logger.h"
#include "text/text_conversion.h"

namespace KelmoraID {

ReaderConnection::~ReaderConnection() {
    if (hCard == 0) return;
    logError("Card left open without disconnect on destructor! Please, ensure proper disconnect!");
    activeProtocol_ = 0;
    flag_ = false;
    SCardDisconnect(hCard, SCARD_LEAVE_CARD);
    hCard = 0;
}

void ReaderConnection::setReaderName(const WideString& name) {
    name_ = name;
    nameUtf8_ = wideToUtf8(name);
}

LONG ReaderConnection::connect(SCARDCONTEXT hContext) {
    hCard = 0;  // quirk: second-connect. A handle from before is given up without a disconnect.
    activeProtocol_ = 0;
    const LONG code =
        SCardConnectW(hContext, name_.c_str(), SCARD_SHARE_SHARED,
                      SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &hCard, &activeProtocol_);
    if (code == SCARD_S_SUCCESS) return code;
    hCard = 0;
    activeProtocol_ = 0;
    // A reader without a card is nothing to report.
    if (code != SCARD_W_REMOVED_CARD) {
        // quirk: signed-codes. A PC/SC code is a LONG: 0x8010000C prints as -7feffff4.
        logError(fmt::format("SCardConnectW failed error code hex {:x}", code));
    }
    return code;
}

}  // namespace KelmoraID
