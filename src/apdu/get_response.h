// GET RESPONSE (ISO/IEC 7816-4, 11.7.1) as a command object. Decipher builds its further request
// with it; no sequence transmits it by itself.
#pragma once

#include "apdu/apdu.h"

namespace KelmoraID::FINEID {

class GetResponse final : public Apdu {
public:
    explicit GetResponse(std::optional<BYTE> Le);

    std::string_view getName() const override { return "GET RESPONSE"; }
    /// success is whether SW1 is 90.
    std::optional<ApduRequest> handleResponse(const ApduResponse& response) override;
    ApduRequest buildRequest() override;

private:
    std::optional<BYTE> Le_;
};

}  // namespace KelmoraID::FINEID
