#include "apdu/apdu_commands.h"

#include <gtest/gtest.h>

#include <string>

#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;

struct Case {
    const char* name;
    ApduCommand command;
    const char* wire;
};

std::vector<Case> cases() {
    return {
        {"select", apduCommands::select(0x09, 0x04, bytes("3F 00 50 31")),
         "00A4 0904 04 3F005031 00"},
        {"selectRootDir", apduCommands::selectRootDir(), "00A4 000C 02 3F00 00"},
        {"selectEsign", apduCommands::selectEsign(), "00A4 010C 02 5016 00"},
        {"getResponse", apduCommands::getResponse(0x2A), "00C0 0000 2A"},
        {"getResponseOf256", apduCommands::getResponse(0x00), "00C0 0000 00"},
        {"readBinary", apduCommands::readBinary(0x01, 0x7D, 0x7F), "00B0 017D 7F"},
        {"verify", apduCommands::verify(0x02, bytes("31 32")), "0020 0082 02 3132 00"},
        {"verifyPIN1", apduCommands::verifyPIN1(bytes("31323334")), "0020 0091 04 31323334 00"},
        {"verifyPIN2", apduCommands::verifyPIN2(bytes("353637")), "0020 0095 03 353637 00"},
        {"mseSetDst", apduCommands::mseSetDst(0x40, 0x02, 0x81), "0022 41B6 06 840181 800142 00"},
        {"mseSetDstJoinsByOr", apduCommands::mseSetDst(0x44, 0x04, 0x01),
         "0022 41B6 06 840101 800144 00"},
        {"psoHash", apduCommands::psoHash(bytes("AABBCC")), "002A 90A0 05 9003 AABBCC 00"},
        {"psoComputeSignature", apduCommands::psoComputeSignature(bytes("AABBCC")),
         "002A 9E9A 03 AABBCC 00"},
    };
}

TEST(CommandFactories, GiveTheirWireForms) {
    for (const Case& each : cases()) {
        EXPECT_EQ(each.command.encode(), bytes(each.wire)) << each.name;
    }
}

TEST(CommandFactories, SetLcToTheSizeOfTheData) {
    for (const Case& each : cases()) {
        EXPECT_EQ(each.command.Lc, each.command.data.size()) << each.name;
    }
}

TEST(CommandFactories, LetTheCallerSetTheLeOfASignature) {
    ApduCommand command = apduCommands::psoComputeSignature(bytes("AA"));
    EXPECT_EQ(command.Le, BYTE{0x00});
    command.Le = BYTE{0x60};
    EXPECT_EQ(command.encode(), bytes("002A 9E9A 01 AA 60"));
}

}  // namespace
}  // namespace KelmoraID
