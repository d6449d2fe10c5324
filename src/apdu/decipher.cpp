#include "apdu/decipher.h"

#include <utility>

#include "apdu/get_response.h"

namespace KelmoraID::FINEID {

Decipher::Decipher(std::optional<ByteVector> data, BYTE Le, bool chained)
    : CLA_(chained ? 0x10 : 0x00), data_(std::move(data)) {
    if (chained) {
        if (data_) data_->insert(data_->begin(), 0x81);
    } else {
        Le_ = Le;
    }
}

std::optional<ApduRequest> Decipher::handleResponse(const ApduResponse& response) {
    success_ = false;
    // The answer to the GET RESPONSE comes back to this object.
    if (response.SW1 == 0x61) return GetResponse(response.SW2).buildRequest();
    if (response.Sw1Sw2 == 0x9000 || response.Sw1Sw2 == 0x6282) {
        success_ = true;
        responseData_ = response.data;
    }
    return std::nullopt;
}

ApduRequest Decipher::buildRequest() {
    return ApduRequest(CLA_, 0x2A, 0x80, 0x86, data_, Le_);
}

}  // namespace KelmoraID::FINEID
