// The outcome of a command record. A card's refusal is data in it; nothing is thrown.
#pragma once

#include <cstdint>
#include <span>

#include "apdu/apdu_command.h"
#include "apdu/status_words.h"

namespace KelmoraID {

struct ApduResult {
    ApduCommand command;  ///< the command sent first; a GET RESPONSE does not replace it
    StatusWordInfo status;
    LONG transportErrorCode = 0;  ///< a PC/SC code; 0 when good
    BYTE SW1 = 0;
    BYTE SW2 = 0;
    ByteVector responseData;  ///< all data of all replies, in arrival order

    ApduResult() = default;
    explicit ApduResult(ApduCommand firstCommand);
    /// An empty record with that PC/SC code; its status bytes have no meaning.
    explicit ApduResult(LONG pcscCode);

    /// Takes a reply: the status bytes, the data behind what stands already, and the row of the
    /// status word, whose platform code replaces the transport error code. A reply of fewer than
    /// two bytes sets SCARD_E_UNEXPECTED, with a line on the ERROR channel, and changes nothing
    /// else.
    void applyReply(std::span<const BYTE> reply);

    /// Transport error code 0 and status word 9000.
    bool success() const;
    /// The opposite of success.
    bool isError() const { return !success(); }
    /// SW1 61: SW2, and 256 when SW2 is 00. Any other SW1: 0.
    std::uint32_t bytesWaiting() const;
    std::uint16_t Sw1Sw2() const;
    /// 6984 sets SCARD_W_CHV_BLOCKED and gives 0; 63Cx sets SCARD_W_WRONG_CHV and gives x; anything
    /// else gives -1. No operation of the system calls it.
    int verifyOutcome();

    /// Of a SELECT's result: the file's size by the file control parameters in the response data
    /// (ISO/IEC 7816-4): tag 62, and in it tag 80, or tag 81 where there is no 80, as a
    /// big-endian number folded into 32 bits. 0 if there is none.
    std::uint32_t fileSize() const;
};

}  // namespace KelmoraID
