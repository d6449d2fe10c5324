// What a run with a fault in it has to end with: rules over the commands that went out and what
// arrived for each of them, without a look at how the driver comes to its status.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform_side.h"

namespace boundary {

/// A command with its whole answer: the GET RESPONSE commands that gathered it, and the try before
/// a reconnect, are no steps of their own.
struct Step {
    Bytes command;
    bool answered = false;
    bool wasReset = false;  ///< told of a reset for the first time, and not tried again
    unsigned statusWord = 0;
    Bytes data;      ///< of all replies
    Bytes lastData;  ///< of the last one
};
using Steps = std::vector<Step>;

/// Answered with 9000.
bool isGood(const Step& step);

/// @param n  the number, from 1, of the exchange that the fault struck; 0 for none
/// @param reconnects  whether the reader comes back after a reset
Steps stepsOf(const std::vector<virtual_card::Exchange>& exchanges, std::size_t n = 0,
              const virtual_card::Fault& fault = {}, bool reconnects = true);

/// How many errors have to be thrown as pointers, by what arrived for the commands of PINs, of
/// decryption and of agreement: one for each that the card refuses, and one more where limits that
/// are asked for by command were not to be had, whatever the cause. File reading and signatures
/// throw none.
int errorsAsPointers(const Steps& run);

// Each holds a run against the commands that have to follow what arrived, or against the good
// run's, reports a command that should not have gone out or should have, and gives the status that
// the run has to have.
DWORD statusOfAcquisition(const Steps& good, const Steps& run);
DWORD statusOfSignature(const Steps& good, const Steps& run);
DWORD statusOfDecryption(const Steps& good, const Steps& run);
/// Of an agreement, or of what asks for the PIN alone.
DWORD statusOfAgreement(const Steps& good, const Steps& run);

/// What an acquisition has to take out of the files as they arrived. The certificates are there,
/// perhaps empty, wherever they were read.
struct CardContent {
    DWORD status = 0;
    Bytes serialNumber;
    std::vector<Bytes> certificates;
};
CardContent contentOf(const Steps& good, const Steps& run);

/// A showing of the companion application's dialog.
struct Prompt {
    BYTE reason;
    DWORD attempts;  ///< that it shows
    bool operator==(const Prompt&) const = default;
};
/// What has to become of PINs.
struct PinEnd {
    DWORD status = 0;
    std::optional<DWORD> attempts;  ///< that the caller is told
    std::vector<Prompt> prompts;
};
/// @param good  a run in which a PIN of that kind went out
PinEnd endOfPin(const Steps& good, const Steps& run, const std::string& pin);
/// @param pins  what the user enters, one after the other, before giving up
PinEnd endOfDialog(const Steps& good, const Steps& run, const std::vector<std::string>& pins);

}  // namespace boundary
