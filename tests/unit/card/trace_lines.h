// The trace of card operations as a test expects it, with what every exchange adds to it.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "support/log_capture.h"
#include "support/scripted_card.h"

namespace KelmoraID::testing {

/// Each byte without a leading zero, a blank behind every byte.
inline std::string traceHex(const ByteVector& value) {
    std::string text;
    for (const BYTE byte : value) {
        char piece[8];
        std::snprintf(piece, sizeof piece, "%x ", byte);
        text += piece;
    }
    return text;
}

/// Two digits a byte, one blank between.
inline std::string traceSpacedHex(const ByteVector& value) {
    std::string text;
    for (const BYTE byte : value) {
        char piece[8];
        std::snprintf(piece, sizeof piece, text.empty() ? "%02x" : " %02x", byte);
        text += piece;
    }
    return text;
}

/// An element as hexadecimal text, with its length in the shortest form.
inline std::string tlv(std::string_view tag, std::string_view value) {
    const auto size = static_cast<unsigned>(bytes(value).size());
    char length[8];
    std::snprintf(length, sizeof length,
                  size < 0x80    ? "%02X"
                  : size < 0x100 ? "81%02X"
                                 : "82%04X",
                  size);
    return std::string(tag) + length + std::string(value);
}

/// Sets up the card's steps and the trace that goes with them, in one go.
class TracedCard {
public:
    TracedCard() = default;

    ScriptedCard& card() { return card_; }
    const LogLines& lines() const { return lines_; }

    TracedCard& line(const std::string& text) {
        lines_.push_back({"DEBUG", text});
        return *this;
    }
    /// A command, its reply, and the three lines of an exchange.
    TracedCard& exchange(std::string_view command, std::string_view reply) {
        card_.expect(command, reply);
        return line("SendApduCommand")
            .line("APDU command (hSCard=CA4D): " + traceHex(bytes(command)))
            .line("Bytes received: " + std::to_string(bytes(reply).size()));
    }

    /// The application's selection on a card that takes the first identifier.
    TracedCard& application() {
        return line("selectFINEIDApplication")
            .exchange("00A4 0400 0C A000000063504B43532D3135 00", "9000")
            .line(
                "Original selectApplication: P1: '0x4'; P2: '0x0'; result.success: 'true'; "
                "result.Sw1Sw2: '0x9000'.")
            .line("selectFINEIDApplication succeeded.");
    }

    /// A file directly under the root directory, on a card that takes the first form everywhere.
    /// @param identifier the file's two bytes
    TracedCard& file(std::string_view identifier, std::string_view content) {
        const ByteVector file = bytes(content);
        char fcp[32];
        std::snprintf(fcp, sizeof fcp, "6204 8002 %04X 9000", static_cast<unsigned>(file.size()));
        fileSelection(std::string(identifier), fcp);
        line("readBinary");
        for (std::size_t offset = 0; offset < file.size(); offset += 127) {
            const auto first = file.begin() + static_cast<std::ptrdiff_t>(offset);
            const std::size_t size = std::min<std::size_t>(127, file.size() - offset);
            char command[32];
            std::snprintf(command, sizeof command, "00B0 %04X %02X", static_cast<unsigned>(offset),
                          static_cast<unsigned>(size));
            const ByteVector chunk(first, first + static_cast<std::ptrdiff_t>(size));
            exchange(command, traceSpacedHex(chunk) + "9000");
        }
        line("readBinary exiting successfully!");
        return line("Completing ReadFile.");
    }

    /// The same up to the file's SELECT and its reply.
    TracedCard& fileSelection(const std::string& identifier, std::string_view reply) {
        directoryWalk(identifier);
        return line("ReadFile: selectFileApdu, efIdentifier: " + traceHex(bytes(identifier)))
            .exchange("00A4 0204 02 " + identifier + "00", reply);
    }

    /// A file that none of the three forms of SELECT finds.
    TracedCard& missingFile(const std::string& identifier) {
        const std::string path = "3F00" + identifier;
        return fileSelection(identifier, "6A82")
            .line("ReadFile: selectFileApdu, whole filepath: " + traceHex(bytes(path)))
            .exchange("00A4 0204 04 " + path + "00", "6A82")
            .line("ReadFile: selectFileApdu (Cosmo X), filePath: " + traceHex(bytes(path)))
            .exchange("00A4 0904 04 " + path + "00", "6A82")
            .line("Completing ReadFile with error.")
            .line("Completing ReadFile.");
    }

private:
    void directoryWalk(const std::string& identifier) {
        line("readFile");
        line("ReadFile: full filePath: 3f 0 " + traceHex(bytes(identifier)));
        line("ReadFile: selectDF, filePath-mid: 3f 0 ");
        line("selectDF");
        line("Checking Sote and ORG cards.");
        exchange("00A4 0104 02 3F00 00", "9000");
        line(
            "(1) SOTE&ORG for: Identifier: '3f 0 '; P1: '0x1'; P2: '0x4'; result.success: 'true'; "
            "result.Sw1Sw2: '0x9000'.");
        line("selectDF finished.");
    }

    ScriptedCard card_;
    LogLines lines_;
};

}  // namespace KelmoraID::testing
