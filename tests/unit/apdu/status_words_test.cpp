#include "apdu/status_words.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "apdu/status_word_table.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

void expectRow(const StatusWordInfo& info, std::uint16_t Sw1Sw2, const char* type,
               std::uint32_t severity, std::uint32_t platformCode, const char* text) {
    SCOPED_TRACE(Sw1Sw2);
    EXPECT_EQ(info.Sw1Sw2, Sw1Sw2);
    EXPECT_EQ(info.type, type);
    EXPECT_EQ(info.severity, severity);
    EXPECT_EQ(info.platformCode, platformCode);
    EXPECT_EQ(info.text(), text);
}

TEST(StatusWords, HaveTheRowsOfTheTable) {
    StatusWordTable table;
    expectRow(table.lookup(0x9000), 0x9000, "CommonError", 0, 0, "Command processed without error");
    expectRow(table.lookup(0x6700), 0x6700, "CommonError", 3, status::invalidParameter,
              "Incorrect length. Lc > 30.");
    // The characters of this text are an en dash and three typographic apostrophes, in UTF-8.
    expectRow(table.lookup(0x6985), 0x6985, "SignError", 3, status::cardNotAuthenticated,
              "Conditions of use not satisfied, for example: No hashed message available from "
              "PSO\xE2\x80\x93"
              "Hash command, No algorithm or private key in the current SE\xE2\x80\x99s DST, "
              "Algorithm not recognized, Private key in current SE\xE2\x80\x99s DST is not a "
              "digital signature key, Private key in current SE\xE2\x80\x99s DST has not been "
              "initialized, PIN protecting the signature key has not been changed since "
              "personalization, Security attribute for the current contact/contactless interface "
              "is absent");
    expectRow(table.lookup(0x6986), 0x6986, "SignError", 3, status::unsupportedFeature,
              "Command not allowed (use of SHA-1 has been prohibited by the cryptographic "
              "environment parameters data object)");
    expectRow(table.lookup(0x6A84), 0x6A84, "SignError", 2, status::securityViolation,
              "Signature counter exceeds maximum allowed value.");
    expectRow(table.lookup(0x6A86), 0x6A86, "SignError", 3, status::invalidParameter,
              "Incorrect P1, P2. Must be 9Eh 9Ah");
    expectRow(table.lookup(0x6A88), 0x6A88, "SignError", 3, status::fileNotFound,
              "Referenced data not found");
    expectRow(table.lookup(0x6100), 0x6100, "GetResponseError", 1, 0,
              "Data bytes still waiting in the card: ");
    expectRow(table.lookup(0x6C00), 0x6C00, "GetResponseError", 1, 0, "if Le > Licc = ");
    expectRow(table.lookup(0x6982), 0x6982, "GetResponseError", 2, status::securityViolation,
              "Security status not satisfied");
}

// The table holds a row for 6982 of a signature; a later row of the same word wins, and has
// to.
TEST(StatusWords, Give6982TheLastOfItsTwoRows) {
    StatusWordTable table;
    EXPECT_EQ(table.lookup(0x6982).text(), "Security status not satisfied");
    EXPECT_EQ(table.lookup(0x6982).platformCode, status::securityViolation);
    EXPECT_EQ(table.lookup(0x6982).type, "GetResponseError");
}

TEST(StatusWords, PutSw2AsADecimalNumberBehindTheTextOfARowOfSw1) {
    StatusWordTable table;
    expectRow(table.lookup(0x6110), 0x6110, "GetResponseError", 1, 0,
              "Data bytes still waiting in the card: 16");
    expectRow(table.lookup(0x6C20), 0x6C20, "GetResponseError", 1, 0, "if Le > Licc = 32");
    expectRow(table.lookup(0x67FF), 0x67FF, "CommonError", 3, status::invalidParameter,
              "Incorrect length. Lc > 30.255");
    // A row of SW1 itself is never touched by that.
    EXPECT_EQ(table.lookup(0x6100).text(), "Data bytes still waiting in the card: ");
}

TEST(StatusWords, GiveAnEmptyRowWithTheNumberToAnUnknownSw1) {
    StatusWordTable table;
    expectRow(table.lookup(0x6A82), 0x6A82, "", 0, 0, "130");
    expectRow(table.lookup(0x63C2), 0x63C2, "", 0, 0, "194");
    expectRow(table.lookup(0x0000), 0x0000, "", 0, 0, "0");
}

TEST(StatusWords, FindAnEmptyRowExactlyOnceItStandsInTheTable) {
    StatusWordTable table;
    expectRow(table.lookup(0x6A00), 0x6A00, "", 0, 0, "0");
    // Empty as it was made, its number included.
    expectRow(table.lookup(0x6A00), 0, "", 0, 0, "");
    expectRow(table.lookup(0x6A00), 0, "", 0, 0, "");

    StatusWordTable other;
    EXPECT_EQ(other.lookup(0x6A82).text(), "130");
    EXPECT_EQ(other.lookup(0x6A00).text(), "");
}

TEST(StatusWords, OfOneUnknownSw1ShareOneEmptyRow) {
    StatusWordTable table;
    EXPECT_EQ(table.lookup(0x6A82).text(), "130");
    EXPECT_EQ(table.lookup(0x6A83).text(), "131");
    EXPECT_EQ(table.lookup(0x6A82).text(), "130");
    // Another SW1 has another row: its 00 is still unknown.
    EXPECT_EQ(table.lookup(0x6B00).text(), "0");
}

TEST(StatusWords, AreLookedUpInOneTableOfTheProcess) {
    EXPECT_EQ(lookupStatusWord(0x6501).text(), "1");
    EXPECT_EQ(lookupStatusWord(0x6500).text(), "");
    EXPECT_EQ(lookupStatusWord(0x9000).text(), "Command processed without error");
}

TEST(StatusWords, CanBeLookedUpByManyThreadsAtATime) {
    StatusWordTable table;
    std::atomic<int> firstFinds = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int word = 0; word <= 0xFFFF; word += 0x100) {
                if (table.lookup(static_cast<std::uint16_t>(word)).text() == "0") ++firstFinds;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    // Every SW1 but 61, 67, 6C and 90 has one lookup that makes its empty row.
    EXPECT_EQ(firstFinds, 252);
}

}  // namespace
}  // namespace KelmoraID
