// SELECT (ISO/IEC 7816-4, 11.2.2) as a command object.
#pragma once

#include "apdu/apdu.h"

namespace KelmoraID::FINEID {

/// How SELECT addresses the file. Any value not named here is sent as P1 itself.
enum class SelectMode : BYTE {
    masterFile = 0x00,                 ///< P1 00 with the root directory's identifier, always
    childDirectory = 0x01,             ///< P1 01
    parentDirectory = 0x03,            ///< P1 03 without data
    applicationIdentifier = 0x04,      ///< P1 04
    identifierUnderMasterFile = 0x80,  ///< a marker: the identifier is sent under P1 00
};

class Select final : public Apdu {
public:
    /// @param mode          gives P1 and whether the identifier is sent
    /// @param identifier    ignored by masterFile and parentDirectory
    /// @param wantResponse  true: P2 04 and Le 00; false: P2 0C and no Le
    Select(SelectMode mode, std::optional<ByteVector> identifier, bool wantResponse);

    std::string_view getName() const override { return "SELECT"; }
    std::optional<ApduRequest> handleResponse(const ApduResponse& response) override;
    ApduRequest buildRequest() override;

    /// The data of the last response, if it had any.
    const std::optional<ByteVector>& responseData() const { return responseData_; }

private:
    BYTE P1_;
    BYTE P2_;
    std::optional<ByteVector> data_;
    std::optional<BYTE> Le_;
    std::optional<ByteVector> responseData_;
};

}  // namespace KelmoraID::FINEID
