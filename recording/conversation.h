// A conversation with a card: what was called of the driver, which commands that sent to the card,
// and what the card said. Its text form is docs/conversation-format.md.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace recording {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;
using Duration = std::chrono::microseconds;

/// The longest line of a conversation's text, in bytes.
inline constexpr std::size_t longestLine = 4096;

enum class Protocol { t0, t1 };

/// Whether a byte of a command belongs to a PIN: what follows the five header bytes of VERIFY,
/// CHANGE REFERENCE DATA and RESET RETRY COUNTER (ISO/IEC 7816-4, 7.5). Such bytes are never
/// written.
bool isPinByte(ByteView command, std::size_t at);

/// A command as it is written: a byte without a value was masked, and stands for any byte.
struct WrittenCommand {
    std::vector<std::optional<std::uint8_t>> bytes;

    WrittenCommand() = default;
    /// The command with the bytes of its PIN masked.
    explicit WrittenCommand(ByteView command);

    bool matches(ByteView command) const;
    /// The bytes, 0 for those that are masked.
    Bytes withoutPin() const;
    bool operator==(const WrittenCommand&) const = default;
};

/// What came back for a command: bytes, which may be none, or the PC/SC code of a failure.
struct Reply {
    Bytes bytes;
    std::uint32_t failure = 0;  ///< 0 where bytes came back
    std::optional<Duration> time;

    bool operator==(const Reply&) const = default;
};

/// A line of its own that starts with #.
struct Note {
    std::string text;
    bool operator==(const Note&) const = default;
};

/// An entry point of the driver is called; the text begins with its name.
struct Call {
    std::string text;
    bool operator==(const Call&) const = default;
};

/// One command and what came back.
struct Exchange {
    WrittenCommand command;
    Reply reply;
    std::size_t line = 0;  ///< where the command stands in the text it was read from

    bool operator==(const Exchange& other) const {
        return command == other.command && reply == other.reply;
    }
};

/// The status with which the last call came back.
struct Result {
    std::uint32_t status = 0;
    std::optional<Duration> time;
    bool operator==(const Result&) const = default;
};

/// A line of the driver's own log, whole.
struct LogLine {
    std::string text;
    bool operator==(const LogLine&) const = default;
};

using Entry = std::variant<Note, Call, Exchange, Result, LogLine>;

struct Conversation {
    Bytes atr;
    Protocol protocol = Protocol::t1;
    std::vector<Entry> entries;

    bool operator==(const Conversation&) const = default;
};

/// Upper-case hexadecimal with a blank between bytes; ** for a masked byte.
std::string hexText(ByteView bytes);
std::string hexText(const WrittenCommand& command);

}  // namespace recording
