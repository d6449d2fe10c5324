// The size of a file by the control parameters that its SELECT gave (ISO/IEC 7816-4).
#include "apdu/apdu_result.h"
#include "bytes/tlv_scan.h"

namespace KelmoraID {
namespace {

constexpr BYTE fcpTemplate = 0x62;
constexpr BYTE dataBytes = 0x80;
constexpr BYTE bytesWithStructure = 0x81;

}  // namespace

std::uint32_t ApduResult::fileSize() const {
    const auto parameters = findValue(responseData, fcpTemplate);
    if (!parameters) return 0;
    auto size = findValue(*parameters, dataBytes);
    if (!size) size = findValue(*parameters, bytesWithStructure);
    if (!size) return 0;
    std::uint32_t number = 0;
    for (const BYTE byte : *size) number = number << 8 | byte;  // of any length, folded
    return number;
}

}  // namespace KelmoraID
