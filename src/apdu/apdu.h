// A command object: a command that is a small conversation with the card. It builds its first
// request, is shown each response and may answer with a further request; Transmit drives it, and
// the outcome stays in the object. PINs, deciphering and their selections go this way; the other
// way to a card are command records (apdu_command.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "apdu/apdu_messages.h"
#include "platform/win32.h"

namespace KelmoraID::FINEID {

/// Built on the stack by its exact type and used for one Transmit.
class Apdu {
public:
    /// The command's name for the log.
    virtual std::string_view getName() const = 0;
    /// Is shown a response; gives the next request to send, or none to stop.
    virtual std::optional<ApduRequest> handleResponse(const ApduResponse& response) = 0;
    /// The first request.
    virtual ApduRequest buildRequest() = 0;

    /// Runs the conversation on a card. One reconnect is made for each request that meets a reset
    /// card. Afterwards success and Sw1Sw2 are set: where no response decided, success is whether
    /// the last status word is 9000. Logs no traffic.
    /// @throws std::system_error with the PC/SC code as a signed 32-bit value and the text "Could
    ///         not reconnect to card." or "Failed to transmit data."
    Apdu& Transmit(SCARDHANDLE hCard, SCARD_IO_REQUEST sendPci);

    /// @throws std::bad_optional_access while unset
    bool success() const { return success_.value(); }
    std::uint16_t Sw1Sw2() const { return Sw1Sw2_.value(); }

    /// One DEBUG line for a request or a response. No operation of the system calls them: a PIN on
    /// this path never reaches the log.
    void logCommand(const ApduRequest& request) const;
    void logResponse(const ApduResponse& response) const;

protected:
    Apdu() = default;
    ~Apdu() = default;
    Apdu(const Apdu&) = default;
    Apdu& operator=(const Apdu&) = default;

    std::optional<bool> success_;
    std::optional<std::uint16_t> Sw1Sw2_;
};

}  // namespace KelmoraID::FINEID
