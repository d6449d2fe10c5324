// Commands and replies on the wire: ISO/IEC 7816-4, short form (one byte Lc, one byte Le). This is
// the card's own reading of them; it shares nothing with the minidriver's.
#pragma once

#include <optional>

#include "virtual_card/bytes.h"

namespace virtual_card {

/// The status words that the card uses (ISO/IEC 7816-4, 5.6).
namespace sw {
inline constexpr std::uint16_t ok = 0x9000;
inline constexpr std::uint16_t endOfFile = 0x6282;
inline constexpr std::uint16_t wrongLength = 0x6700;
inline constexpr std::uint16_t chainingNotSupported = 0x6884;
inline constexpr std::uint16_t securityStatusNotSatisfied = 0x6982;
inline constexpr std::uint16_t methodBlocked = 0x6983;
inline constexpr std::uint16_t referenceDataNotUsable = 0x6984;
inline constexpr std::uint16_t conditionsNotSatisfied = 0x6985;
inline constexpr std::uint16_t noCurrentFile = 0x6986;
inline constexpr std::uint16_t incorrectData = 0x6A80;
inline constexpr std::uint16_t fileNotFound = 0x6A82;
inline constexpr std::uint16_t incorrectP1P2 = 0x6A86;
inline constexpr std::uint16_t referenceNotFound = 0x6A88;
inline constexpr std::uint16_t offsetOutsideFile = 0x6B00;
inline constexpr std::uint16_t instructionNotSupported = 0x6D00;
inline constexpr std::uint16_t classNotSupported = 0x6E00;

/// 63Cx: a wrong PIN, x tries left.
constexpr std::uint16_t triesLeft(unsigned tries) {
    return static_cast<std::uint16_t>(0x63C0 | (tries & 0x0F));
}

/// 61xx: bytes waiting for GET RESPONSE; 256 and more are told as 00.
constexpr std::uint16_t bytesWaiting(std::size_t count) {
    return static_cast<std::uint16_t>(0x6100 | (count >= 256 ? 0 : count));
}
}  // namespace sw

struct Command {
    std::uint8_t cla = 0;
    std::uint8_t ins = 0;
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    Bytes data;                     ///< empty when there is no Lc
    std::optional<std::size_t> le;  ///< 1 to 256 bytes expected; no value when there is no Le
};

struct Reply {
    Bytes data;
    std::uint16_t status = sw::ok;
};

/// Reads a command of the four cases of ISO/IEC 7816-3, 12.1. No value when the lengths in it do
/// not fit its size, or for an extended form.
std::optional<Command> parseCommand(ByteView bytes);

/// The data and the status word behind them.
Bytes encodeReply(const Reply& reply);

}  // namespace virtual_card
