// The status-word table: what a card's answer to a command record means (ISO/IEC 7816-4, 5.6). The
// platform code of a row is how a card's refusal becomes a status that an entry point can return.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace KelmoraID {

/// A row of the table, or a row made by the lookup for a status word without a row of its own.
struct StatusWordInfo {
    std::uint16_t Sw1Sw2 = 0;
    std::string_view type;           ///< "CommonError", "SignError", "GetResponseError" or empty
    std::uint32_t severity = 0;      ///< 0 to 3
    std::uint32_t platformCode = 0;  ///< a PC/SC code, 0 for none
    std::string_view rowText;        ///< of the row
    std::optional<std::uint8_t> number;  ///< what the lookup put behind it

    /// The meaning in words: made for who asks, since every reply is looked up.
    std::string text() const;
};

/// Looks a status word up. An exact row is given as it stands (the last one of the table, where two
/// have the same status word). Otherwise the row of SW1 with 00, an empty one if there is none, is
/// given with the status word asked for and its text followed by SW2 as a decimal number. An empty
/// row, once made, stands in the table for the life of the process and is then found exactly:
/// empty, its status word included.
StatusWordInfo lookupStatusWord(std::uint16_t Sw1Sw2);

}  // namespace KelmoraID
