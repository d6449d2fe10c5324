// VERIFY (ISO/IEC 7816-4, 11.5.6) as a command object. Its own copy of the PIN is wiped with
// the first response; the encoded request that Transmit holds, and the caller's copies, are freed
// without wiping.
#pragma once

#include "apdu/apdu.h"
#include "profiles/card_type.h"

namespace KelmoraID::FINEID {

class Verify final : public Apdu {
public:
    /// @param reference  the PIN reference; sent with 80 added on CardType 6, and only there
    /// @param pin        the PIN bytes as they go to the card; absent to ask for the PIN's state
    Verify(BYTE reference, CardType cardType, std::optional<ByteVector> pin);

    std::string_view getName() const override { return "VERIFY"; }
    /// Wipes and empties the PIN, whatever the status word. success then means that the card gave
    /// an answer to a PIN, not that the PIN was right.
    std::optional<ApduRequest> handleResponse(const ApduResponse& response) override;
    ApduRequest buildRequest() override;

    bool verified() const { return verified_; }
    /// 6984, or 63C0 to a command without data.
    bool blocked() const { return blocked_; }
    /// -1 when the card did not say.
    std::int32_t attemptsRemaining() const { return attemptsRemaining_; }
    /// The command's data; present and empty once a response has come.
    const std::optional<ByteVector>& data() const { return data_; }

private:
    BYTE P2_;
    std::optional<ByteVector> data_;
    bool verified_ = false;
    bool blocked_ = false;
    std::int32_t attemptsRemaining_ = -1;
};

}  // namespace KelmoraID::FINEID
