#include "apdu/select.h"

#include <utility>

#include "apdu/directory_identifiers.h"

namespace KelmoraID::FINEID {

Select::Select(SelectMode mode, std::optional<ByteVector> identifier, bool wantResponse)
    : P1_(static_cast<BYTE>(mode)), P2_(wantResponse ? 0x04 : 0x0C) {
    switch (mode) {
        case SelectMode::masterFile:
            data_.emplace(MfIdentifier.begin(), MfIdentifier.end());
            break;
        case SelectMode::parentDirectory:
            break;
        case SelectMode::identifierUnderMasterFile:
            P1_ = 0x00;
            data_ = std::move(identifier);
            break;
        default:
            data_ = std::move(identifier);
    }
    if (wantResponse) Le_ = BYTE{0x00};
}

std::optional<ApduRequest> Select::handleResponse(const ApduResponse& response) {
    // A 61xx is not fetched: the status word stands, and the command is no success.
    responseData_ = response.data;
    return std::nullopt;
}

ApduRequest Select::buildRequest() {
    return ApduRequest(0x00, 0xA4, P1_, P2_, data_, Le_);
}

}  // namespace KelmoraID::FINEID
