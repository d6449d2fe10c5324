#include "apdu/get_response.h"

namespace KelmoraID::FINEID {

GetResponse::GetResponse(std::optional<BYTE> Le) : Le_(Le) {}

std::optional<ApduRequest> GetResponse::handleResponse(const ApduResponse& response) {
    success_ = response.SW1 == 0x90;
    return std::nullopt;
}

ApduRequest GetResponse::buildRequest() {
    return ApduRequest(0x00, 0xC0, 0x00, 0x00, std::nullopt, Le_);
}

}  // namespace KelmoraID::FINEID
