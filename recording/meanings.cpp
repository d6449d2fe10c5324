#include "recording/meanings.h"

#include <algorithm>
#include <iterator>

namespace recording {

namespace {

struct Instruction {
    std::uint8_t ins;
    const char* name;
};

// ISO/IEC 7816-4, table 4 and ISO/IEC 7816-8, 5.
constexpr Instruction instructions[] = {
    {0x20, "VERIFY"},
    {0x22, "MSE"},
    {0x24, "CHANGE REFERENCE DATA"},
    {0x2A, "PSO"},
    {0x2C, "RESET RETRY COUNTER"},
    {0x84, "GET CHALLENGE"},
    {0xA4, "SELECT"},
    {0xB0, "READ BINARY"},
    {0xB2, "READ RECORD"},
    {0xC0, "GET RESPONSE"},
    {0xCA, "GET DATA"},
    {0xCB, "GET DATA"},
};

struct StatusWord {
    std::uint16_t mask;
    std::uint16_t value;
    const char* meaning;
};

// ISO/IEC 7816-4, tables 5 and 6. What a row counts follows its text.
constexpr StatusWord statusWords[] = {
    {0xFFFF, 0x9000, "done"},
    {0xFFFF, 0x6282, "end of the file reached"},
    {0xFFFF, 0x6283, "the selected file is deactivated"},
    {0xFFFF, 0x6300, "wrong PIN"},
    {0xFFFF, 0x6400, "failed, nothing changed"},
    {0xFFFF, 0x6581, "memory failure"},
    {0xFFFF, 0x6700, "wrong length"},
    {0xFFFF, 0x6881, "logical channel not supported"},
    {0xFFFF, 0x6882, "secure messaging not supported"},
    {0xFFFF, 0x6884, "chaining not supported"},
    {0xFFFF, 0x6981, "the command does not fit the file"},
    {0xFFFF, 0x6982, "the PIN has to be verified first"},
    {0xFFFF, 0x6983, "the PIN is blocked"},
    {0xFFFF, 0x6984, "the PIN cannot be used"},
    {0xFFFF, 0x6985, "conditions of use not met"},
    {0xFFFF, 0x6986, "no file is selected"},
    {0xFFFF, 0x6A80, "wrong data"},
    {0xFFFF, 0x6A81, "function not supported"},
    {0xFFFF, 0x6A82, "file not found"},
    {0xFFFF, 0x6A83, "record not found"},
    {0xFFFF, 0x6A86, "wrong P1 or P2"},
    {0xFFFF, 0x6A87, "Lc does not fit P1 and P2"},
    {0xFFFF, 0x6A88, "what is referred to was not found"},
    {0xFFFF, 0x6B00, "offset outside the file"},
    {0xFFFF, 0x6D00, "command not known"},
    {0xFFFF, 0x6E00, "class not supported"},
    {0xFFFF, 0x6F00, "failed, no reason given"},
    {0xFFF0, 0x63C0, "tries left: "},
    {0xFF00, 0x6100, "bytes waiting: "},
    {0xFF00, 0x6C00, "wrong Le, right is "},
};

std::string nameOfSelect(ByteView command) {
    switch (command[2]) {
        case 0x00:
            return "SELECT by identifier";
        case 0x01:
            return "SELECT a directory below";
        case 0x02:
            return "SELECT a file below";
        case 0x03:
            return "SELECT the directory above";
        case 0x04:
            return "SELECT by application name";
        case 0x08:
            return "SELECT by path from the top";
        case 0x09:
            return "SELECT by path from here";
        default:
            return "SELECT";
    }
}

std::string nameOfSecurityOperation(ByteView command) {
    switch (command[2] << 8 | command[3]) {
        case 0x90A0:
            return "PSO HASH";
        case 0x9E9A:
            return "PSO COMPUTE SIGNATURE";
        case 0x8086:
            return (command[0] & 0x10) != 0 ? "PSO DECIPHER, chained" : "PSO DECIPHER";
        default:
            return "PSO";
    }
}

}  // namespace

std::string meaningOfCommand(ByteView command) {
    if (command.size() < 4) return "command";
    switch (command[1]) {
        case 0x20:
            return command.size() <= 5 ? "VERIFY, query" : "VERIFY";
        case 0x22:
            return command[3] == 0xB6   ? "MSE SET, signature"
                   : command[3] == 0xB8 ? "MSE SET, confidentiality"
                                        : "MSE";
        case 0x2A:
            return nameOfSecurityOperation(command);
        case 0xA4:
            return nameOfSelect(command);
        case 0xB0:
            return "READ BINARY at " + std::to_string(command[2] << 8 | command[3]);
        default:
            break;
    }
    const auto* row =
        std::find_if(std::begin(instructions), std::end(instructions),
                     [&](const Instruction& instruction) { return instruction.ins == command[1]; });
    return row == std::end(instructions) ? "command" : row->name;
}

std::string meaningOfStatusWord(std::uint16_t statusWord) {
    const auto* row = std::find_if(
        std::begin(statusWords), std::end(statusWords),
        [&](const StatusWord& word) { return (statusWord & word.mask) == word.value; });
    if (row == std::end(statusWords)) return {};
    if (row->mask == 0xFFFF) return row->meaning;
    const unsigned count = statusWord & static_cast<unsigned>(0xFFFF ^ row->mask);
    const bool isLength = row->mask == 0xFF00;
    return row->meaning + std::to_string(isLength && count == 0 ? 256 : count);
}

std::string meaningOfReply(ByteView reply) {
    if (reply.empty()) return "no reply";
    if (reply.size() < 2) return "no status word";
    const auto word =
        static_cast<std::uint16_t>(reply[reply.size() - 2] << 8 | reply[reply.size() - 1]);
    const std::string meaning = meaningOfStatusWord(word);
    if (reply.size() == 2) return meaning;
    return std::to_string(reply.size() - 2) + " bytes" + (meaning.empty() ? "" : ", " + meaning);
}

}  // namespace recording
