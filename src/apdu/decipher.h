// PERFORM SECURITY OPERATION, DECIPHER (ISO/IEC 7816-8) as a command object.
#pragma once

#include "apdu/apdu.h"

namespace KelmoraID::FINEID {

class Decipher final : public Apdu {
public:
    /// @param data     the block; when chained and present, the padding indicator 81 goes before it
    /// @param Le       sent only when not chained
    /// @param chained  CLA 10: further blocks follow
    Decipher(std::optional<ByteVector> data, BYTE Le, bool chained);

    std::string_view getName() const override { return "DECIPHER"; }
    /// A 61xx is answered by GET RESPONSE with Le SW2. 9000 and 6282 are success and take the data.
    std::optional<ApduRequest> handleResponse(const ApduResponse& response) override;
    ApduRequest buildRequest() override;

    const std::optional<ByteVector>& responseData() const { return responseData_; }

private:
    BYTE CLA_;
    std::optional<ByteVector> data_;
    std::optional<BYTE> Le_;
    std::optional<ByteVector> responseData_;
};

}  // namespace KelmoraID::FINEID
