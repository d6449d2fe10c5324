#include "recording/conversation.h"

namespace recording {

namespace {

constexpr std::size_t headerLength = 5;  // CLA INS P1 P2 Lc (ISO/IEC 7816-4, 5.1)
constexpr std::uint8_t verify = 0x20;
constexpr std::uint8_t changeReferenceData = 0x24;
constexpr std::uint8_t resetRetryCounter = 0x2C;

void appendByte(std::string& text, std::optional<std::uint8_t> byte) {
    constexpr char digits[] = "0123456789ABCDEF";
    if (!text.empty()) text += ' ';
    if (byte) {
        text += digits[*byte >> 4];
        text += digits[*byte & 15];
    } else {
        text += "**";
    }
}

}  // namespace

bool isPinByte(ByteView command, std::size_t at) {
    if (at < headerLength || command.size() < 2) return false;
    // The lowest bit says only that data are in BER-TLV (ISO/IEC 7816-4, 5.4.2).
    const auto instruction = static_cast<std::uint8_t>(command[1] & 0xFE);
    return instruction == verify || instruction == changeReferenceData ||
           instruction == resetRetryCounter;
}

WrittenCommand::WrittenCommand(ByteView command) {
    for (std::size_t at = 0; at < command.size(); ++at) {
        bytes.push_back(isPinByte(command, at) ? std::nullopt : std::optional(command[at]));
    }
}

bool WrittenCommand::matches(ByteView command) const {
    if (command.size() != bytes.size()) return false;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] && *bytes[at] != command[at]) return false;
    }
    return true;
}

Bytes WrittenCommand::withoutPin() const {
    Bytes result;
    for (const auto& byte : bytes) result.push_back(byte.value_or(0));
    return result;
}

std::string hexText(ByteView bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) appendByte(text, byte);
    return text;
}

std::string hexText(const WrittenCommand& command) {
    std::string text;
    for (const auto& byte : command.bytes) appendByte(text, byte);
    return text;
}

}  // namespace recording
