// Reads a conversation back from its text. The text may come from anywhere: whatever is in it, the
// result is a conversation or a FormatError.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "recording/conversation.h"

namespace recording {

/// The largest text that is read, in bytes.
inline constexpr std::size_t largestText = 16 * 1024 * 1024;
/// The longest command and reply of an extended length (ISO/IEC 7816-3, 12.1), and the longest ATR
/// (ISO/IEC 7816-3, 8.2.1).
inline constexpr std::size_t longestCommand = 65544;
inline constexpr std::size_t longestReply = 65538;
inline constexpr std::size_t longestAtr = 33;

class FormatError : public std::runtime_error {
public:
    FormatError(std::size_t line, const std::string& what)
        : std::runtime_error("line " + std::to_string(line) + ": " + what), line_(line) {}

    /// The number of the line that cannot be read, from 1.
    std::size_t line() const { return line_; }

private:
    std::size_t line_;
};

/// @throws FormatError
Conversation parse(std::string_view text);

}  // namespace recording
