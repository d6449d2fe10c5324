#include "apdu/set.h"

namespace KelmoraID::FINEID {
namespace {

// The reference of the first or of the second key of a kind.
constexpr BYTE derivedReference(BYTE selector, bool extended) {
    const bool first = selector == 1;
    if (extended) return first ? 0x91 : 0x93;
    return first ? 0x81 : 0x82;
}

}  // namespace

Set::Set(BYTE tag, BYTE keyRef, BYTE selector, bool extended) : P2_(tag) {
    const BYTE derivedRef = derivedReference(selector, extended);
    switch (tag) {
        case hashTemplate:
            // quirk: hash-template-of-two-bytes. A tag and a length, and no algorithm behind them.
            data_ = ByteVector{0x80, 0x01};
            break;
        case signatureTemplate:
            data_ = ByteVector{0x80, 0x01, derivedRef, 0x84, 0x01, keyRef};
            break;
        case confidentialityTemplate:
            // quirk: derived-key-reference. It stands for the key; keyRef is not used.
            data_ = ByteVector{0x80, 0x01, 0x1A, 0x84, 0x01, derivedRef};
            break;
        default:
            break;
    }
}

Set::Set(BYTE value)
    : P2_(confidentialityTemplate),
      data_(ByteVector{0x80, 0x04, 0xFF, 0x30, 0x04, 0x00, 0x84, 0x01, value}) {}

std::optional<ApduRequest> Set::handleResponse(const ApduResponse& response) {
    success_ = response.Sw1Sw2 == 0x9000;
    return std::nullopt;
}

ApduRequest Set::buildRequest() {
    return ApduRequest(0x00, 0x22, 0x41, P2_, data_, std::nullopt);
}

}  // namespace KelmoraID::FINEID
