// GET DATA with an extended header list (ISO/IEC 7816-4, 8.4.4) as a command object.
#pragma once

#include "apdu/apdu.h"

namespace KelmoraID::FINEID {

class GetData final : public Apdu {
public:
    /// @param selector   which template of the object is asked for; an unknown one asks for all
    /// @param reference  the object's reference
    /// @param wrapped    true: the fixed header list 4D 08 70 06 BF sel ref 02 A0 80
    GetData(BYTE selector, BYTE reference, bool wrapped);

    std::string_view getName() const override { return "GET DATA"; }
    /// Gathers data; a 61xx is answered by GET RESPONSE with Le 00, whatever SW2 says.
    std::optional<ApduRequest> handleResponse(const ApduResponse& response) override;
    ApduRequest buildRequest() override;

    const std::optional<ByteVector>& responseData() const { return responseData_; }

private:
    ByteVector data_;
    std::optional<ByteVector> responseData_;
};

}  // namespace KelmoraID::FINEID
