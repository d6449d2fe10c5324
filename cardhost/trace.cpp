#include "trace.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

#include "status_names.h"

namespace cardhost {

namespace {

constexpr std::size_t headerLength = 5;  // CLA INS P1 P2 Lc (ISO/IEC 7816-4, 5.1)
constexpr std::size_t bytesPerLine = 24;
constexpr std::size_t nameWidth = 26;

struct Instruction {
    std::uint8_t ins;
    const char* name;
    bool carriesPin;
};

// ISO/IEC 7816-4, 5.4.2 and ISO/IEC 7816-8, 5.
constexpr Instruction instructions[] = {
    {0x20, "VERIFY", true},
    {0x22, "MSE", false},
    {0x24, "CHANGE REFERENCE DATA", true},
    {0x2A, "PSO", false},
    {0x2C, "RESET RETRY COUNTER", true},
    {0x84, "GET CHALLENGE", false},
    {0xA4, "SELECT", false},
    {0xB0, "READ BINARY", false},
    {0xB2, "READ RECORD", false},
    {0xC0, "GET RESPONSE", false},
    {0xCA, "GET DATA", false},
    {0xCB, "GET DATA", false},
};

const Instruction* instructionOf(ByteView command) {
    if (command.size() < 2) return nullptr;
    const auto* row =
        std::find_if(std::begin(instructions), std::end(instructions),
                     [&](const Instruction& instruction) { return instruction.ins == command[1]; });
    return row == std::end(instructions) ? nullptr : row;
}

std::string nameOf(ByteView command) {
    const Instruction* instruction = instructionOf(command);
    std::string name = instruction == nullptr ? "command" : instruction->name;
    if (command.size() >= 4 && command[1] == 0x2A) {
        switch (command[2] << 8 | command[3]) {
            case 0x90A0:
                return name + " HASH";
            case 0x9E9A:
                return name + " COMPUTE SIGNATURE";
            case 0x8086:
                return name + (command[0] & 0x10 ? " DECIPHER, chained" : " DECIPHER");
        }
    }
    if (command.size() >= 4 && command[1] == 0x22) {
        if (command[3] == 0xB6) return name + " SET, signature";
        if (command[3] == 0xB8) return name + " SET, confidentiality";
    }
    if (command.size() >= 4 && command[1] == 0xB0) {
        return fmt::format("{} at {}", name, command[2] << 8 | command[3]);
    }
    if (instruction != nullptr && instruction->carriesPin && command.size() <= headerLength) {
        return name + ", query";
    }
    return name;
}

/// Bytes in lines of equal length, each further line indented like the first.
std::string wrapped(const std::string& head, ByteView bytes, std::size_t firstMasked) {
    std::string text = head;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0 && i % bytesPerLine == 0) text += "\n" + std::string(head.size(), ' ');
        text += i < firstMasked ? fmt::format(" {:02X}", bytes[i]) : " **";
    }
    return text;
}

}  // namespace

std::string commandLine(ByteView command) {
    const Instruction* instruction = instructionOf(command);
    const bool isMasked = instruction != nullptr && instruction->carriesPin;
    return wrapped(fmt::format("  > {:<{}}", nameOf(command), nameWidth), command,
                   isMasked ? headerLength : command.size());
}

std::string replyLine(LONG status, ByteView reply) {
    if (status != SCARD_S_SUCCESS) {
        return fmt::format("  < {}", statusText(static_cast<DWORD>(status)));
    }
    if (reply.empty()) return "  < nothing";
    const std::string head = fmt::format(
        "  < {:<{}}", reply.size() > 2 ? fmt::format("{} bytes", reply.size() - 2) : "", nameWidth);
    return wrapped(head, reply, reply.size());
}

void Trace::entryPoint(const std::string& call) const {
    print(call);
}

void Trace::result(DWORD status) const {
    if (status != 0) print(fmt::format("  = {}", statusText(status)));
}

void Trace::command(ByteView command) const {
    print(commandLine(command));
}

void Trace::reply(LONG status, ByteView reply) const {
    print(replyLine(status, reply));
}

void Trace::print(const std::string& line) const {
    if (isOn_) fmt::print(stderr, "{}\n", line);
}

}  // namespace cardhost
