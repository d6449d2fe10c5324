// MANAGE SECURITY ENVIRONMENT, SET (ISO/IEC 7816-4, 11.5.11) as a command object.
#pragma once

#include "apdu/apdu.h"

namespace KelmoraID::FINEID {

// The templates of a security environment (ISO/IEC 7816-4, 10.3.3).
inline constexpr BYTE hashTemplate = 0xAA;
inline constexpr BYTE signatureTemplate = 0xB6;
inline constexpr BYTE confidentialityTemplate = 0xB8;

class Set final : public Apdu {
public:
    /// @param tag       one of the templates; another tag has no data
    /// @param keyRef    used with the signature template alone
    /// @param selector  1 for the first key of a kind, anything else for the second
    /// @param extended  false: references 81 and 82; true: 91 and 93
    Set(BYTE tag, BYTE keyRef, BYTE selector, bool extended);

    /// The form for key agreement: template B8 with the data 80 04 FF 30 04 00 84 01 value.
    explicit Set(BYTE value);

    std::string_view getName() const override { return "SET"; }
    /// success is whether the status word is 9000.
    std::optional<ApduRequest> handleResponse(const ApduResponse& response) override;
    ApduRequest buildRequest() override;

private:
    BYTE P2_;
    std::optional<ByteVector> data_;
};

}  // namespace KelmoraID::FINEID
