// GET RESPONSE (ISO/IEC 7816-4, 11.7.1) as a command object. Decipher builds its further request
// with it; no sequence transmits it by itself.
#pragma once

#include "apdu/apdu.h"

namespace KelmoraID {

/// How many GET RESPONSE commands may follow one command, on either way to a card. The longest
/// reply that a FINEID card has is a signature of 512 bytes: two by 256 bytes, 16 by the 32 bytes
/// that a block of T=1 holds at first (ISO/IEC 7816-3, 11.4.2), 64 by 8. A card that goes on would
/// go on for ever.
inline constexpr int mostGetResponses = 64;

}  // namespace KelmoraID

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
