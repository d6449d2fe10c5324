// EF.CIAInfo, the card's token information (ISO/IEC 7816-15, 8.10).
#include <fmt/format.h>

#include "bytes/byte_texts.h"
#include "bytes/tlv_scan.h"
#include "card/card_file_system.h"
#include "card/card_transaction_handler.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

constexpr BYTE sequence = 0x30;
constexpr BYTE versionNumber = 0x02;
constexpr BYTE serialOctets = 0x04;
constexpr BYTE manufacturerText = 0x0C;
constexpr BYTE labelText = 0x80;

struct CiaInfo {
    ByteVector version;
    ByteVector serialNumber;
    ByteVector label;
};

// By the first element of each tag, in whatever order they stand. The manufacturer identifier must
// be there as well, and is not kept.
bool decode(const ByteVector& file, CiaInfo& info) {
    const auto record = findValue(file, sequence);
    return record && findElement(*record, versionNumber, info.version) &&
           findElement(*record, serialOctets, info.serialNumber) &&
           findValue(*record, manufacturerText) && findElement(*record, labelText, info.label);
}

}  // namespace

bool CardTransactionHandler::GetSerialNumberAndLabelFromCIAInfo(ByteVector& serialNumber,
                                                                std::string& label) {
    selectFINEIDApplication();  // Its failure shows itself in what comes after.
    trace("GetSerialNumberAndLabelFromCIAInfo");
    trace([] { return fmt::format("Reading CIA file: {}.", bytesToHexSpaced(CiaInfoPath)); });
    const ApduResult file = ReadFile(ByteVector(CiaInfoPath.begin(), CiaInfoPath.end()));
    if (!file.success()) {
        trace("CIA file reading failed.");
        return false;
    }
    trace("CIA file read successfully.");
    trace([&] { return fmt::format("CIA file data: {}", bytesToHexSpaced(file.responseData)); });
    CiaInfo info;
    if (!decode(file.responseData, info)) {
        trace("CIA file decoding failed.");
        return false;
    }
    trace("CIA file decoding successful!");
    serialNumber = info.serialNumber;
    // quirk: label-by-code-page. By the system's, although ISO/IEC 7816-15 has UTF-8 here.
    label = ansiBytesToUtf8(info.label);
    trace([&] {
        return fmt::format("CIA file, serialNumber: {}", bytesToLogHex(info.serialNumber));
    });
    trace([&] { return fmt::format("CIA file, version: {}", bytesToLogHex(info.version)); });
    trace([&] { return fmt::format("CIA file, labelString: {}", label.c_str()); });
    return true;
}

}  // namespace KelmoraID
