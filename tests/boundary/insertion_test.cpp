// What other programs have sent to the card ahead of the acquisition, Windows itself among them,
// changes nothing: the driver sends the same commands and gives the same answers.
#include "platform_side.h"

namespace boundary {
namespace {

struct CommandRow {
    const char* what;
    const char* bytes;
};

// When a card is put in, Windows looks for a driver by these.
const CommandRow discovery[] = {
    {"SELECT, the application of Plug and Play", "00A404000BA0000003974349445F010000"},
    {"GET DATA, the card's identifiers", "00CA7F6800"},
    {"SELECT, the master file", "00A40000023F00"},
    {"SELECT, EF.ATR", "00A40200022F0100"},
    {"READ BINARY", "00B0000000"},
    {"READ BINARY, EF.ATR by its short identifier", "00B0810000"},
    {"SELECT, the PIV application", "00A4040009A0000003080000100000"},
    {"SELECT, the PIV application with its version", "00A404000BA000000308000010000100"},
    {"SELECT, the generic identity application", "00A404000BA0000003974254465902010000"},
};

// Accepted by every generation: the card is left in the middle of something.
const CommandRow others[] = {
    {"SELECT, the directory of the signature keys", "00A4000C025016"},
    {"SELECT, a file in it", "00A4000C024332"},
};

class Insertion : public ::testing::TestWithParam<int> {
protected:
    // All commands and answers of an acquisition and of a signature with each key.
    std::vector<std::string> record(PlatformSide& card) {
        card.reader.clearExchanges();
        card.acquireOrFail();
        std::vector<std::string> lines = journey(card.reader);
        for (const char* file : {"cardid", "cardcf", "cardapps"}) {
            lines.push_back(toHex(card.readFile(nullptr, file).bytes));
        }
        lines.push_back(toHex(card.readFile("mscp", "cmapfile").bytes));
        card.reader.clearExchanges();
        for (BYTE container = 0; container < card.containers(); ++container) {
            lines.push_back(toHex(card.certificate(container)));
            EXPECT_TRUE(card.signsTruly(container)) << int(container);
        }
        for (const std::string& line : journey(card.reader)) lines.push_back(line);
        return lines;
    }
    std::vector<std::string> undisturbed() {
        PlatformSide card(GetParam());
        return record(card);
    }
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Insertion, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Insertion, CommandsOfWindowsAheadOfTheAcquisitionChangeNothing) {
    const std::vector<std::string> expected = undisturbed();
    PlatformSide card(GetParam());
    for (const CommandRow& row : discovery) {
        EXPECT_GE(card.transmit(row.bytes).size(), 2u) << row.what;
    }
    EXPECT_EQ(record(card), expected);
}

TEST_P(Insertion, EachCommandOfWindowsAsTheLastOneChangesNothing) {
    const std::vector<std::string> expected = undisturbed();
    for (const CommandRow& row : discovery) {
        PlatformSide card(GetParam());
        card.transmit(row.bytes);
        EXPECT_EQ(record(card), expected) << row.what;
    }
}

TEST_P(Insertion, ACardLeftInAnotherDirectoryIsReadTheSame) {
    const std::vector<std::string> expected = undisturbed();
    PlatformSide card(GetParam());
    for (const CommandRow& row : others) {
        EXPECT_EQ(toHex(card.transmit(row.bytes)), "9000") << row.what;
    }
    EXPECT_EQ(record(card), expected);
}

}  // namespace
}  // namespace boundary
