// A certificate of the card: its path from the directories, then its file as it is.
#include <fmt/format.h>

#include <utility>

#include "bytes/byte_texts.h"
#include "card/card_transaction_handler.h"

namespace KelmoraID {

ByteVector CardTransactionHandler::GetCertificate(std::uint32_t index) {
    selectFINEIDApplication();  // Its failure shows itself in what comes after.
    trace("GetCertificate");
    const ByteVector path = certificatePath(index);
    trace([&] {
        return fmt::format("GetCertificate, reading cert with path: {}", bytesToLogHex(path));
    });
    if (path.empty()) {
        trace("GetCertificate, cert directory fetching failed.");
        return {};
    }
    ApduResult file = ReadFile(path);
    if (!file.success()) {
        // quirk: odf-for-certificate. It is the certificate's own file that could not be read.
        trace("GetCertificate, ODF file read failed.");
        return {};
    }
    trace("GetCertificate, CERT file read successfully!");
    trace([&] { return fmt::format("Cert result: {}", bytesToHexSpaced(file.responseData)); });
    trace([&] { return fmt::format("Cert len: {}", file.responseData.size()); });
    // Not trimmed by the certificate's own length: the file's size counts.
    return std::move(file.responseData);
}

}  // namespace KelmoraID
