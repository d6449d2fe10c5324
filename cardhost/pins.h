// PINs: where they come from, and their verification through the driver.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "driver.h"

namespace cardhost {

class Command;

constexpr PIN_ID authenticationPin = 1;
constexpr PIN_ID signaturePin = 4;

/// Where the PIN comes from. Without any of these the program asks for it, without echo.
struct PinOptions {
    std::vector<std::string> pins;  // tried in turn
    std::string file;               // its first line
};

/// Adds --pin and --pin-file to a command.
void addPinOptions(Command& command, PinOptions& options);

/// "1 (authentication)" and so on.
std::string pinText(PIN_ID pin);

/// What CardAuthenticateEx says to one PIN.
struct PinAnswer {
    DWORD status;
    std::optional<DWORD> attemptsRemaining;  // none where the driver left the value untouched
};

PinAnswer presentPin(Acquisition& acquisition, PIN_ID pin, const std::string& value);

/// Verifies a PIN: the given values in turn, or what the user types until it is right. Says on
/// standard error what became of each wrong one. With an external PIN the driver's own dialog asks.
/// Throws a Failure (wrongPin, pinBlocked, refused) if no value is accepted, (usage) if there is
/// none.
void verifyPin(Acquisition& acquisition, PIN_ID pin, const PinOptions& options);

}  // namespace cardhost
