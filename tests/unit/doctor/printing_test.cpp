#include "doctor/printing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "doctor/printable.h"
#include "os.h"

// The tests print to files, which are no terminals.
bool cardhost::os::takesEscapeSequences(std::FILE*) {
    return false;
}

namespace cardhost::doctor {
namespace {

using ::testing::HasSubstr;

std::string printed(const Findings& findings) {
    std::FILE* file = std::tmpfile();
    Printer printer(file);
    printer.print(findings);
    printer.summarise(findings);
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
    std::fclose(file);
    return text;
}

TEST(Report, IsReadable) {
    Findings findings;
    findings.begin("Readers");
    findings.well("a", "Reader 1", "a card");
    findings.problem("b", "Reader 2",
                     "a text that is so long that it does not fit into one line of a terminal",
                     "Do something about it, at such length that the advice takes two lines too.");
    findings.begin("Card");
    findings.note("c", "PIN 1", "1 try left");
    findings.unknown("d", "PIN 4", "not told");
    EXPECT_EQ(printed(findings),
              "Readers\n"
              "  ok       Reader 1: a card\n"
              "  PROBLEM  Reader 2: a text that is so long that it does not fit into one line\n"
              "           of a terminal\n"
              "           -> Do something about it, at such length that the advice takes two\n"
              "              lines too.\n"
              "\n"
              "Card\n"
              "  note     PIN 1: 1 try left\n"
              "  unknown  PIN 4: not told\n"
              "\n"
              "Summary\n"
              "  1 problem stands in the way. Other points: 1 well, 1 note, 1 not known.\n"
              "  - Readers: Reader 2\n");
}

TEST(Report, OfAHealthyMachineSaysSo) {
    Findings findings;
    findings.begin("Card");
    findings.well("a", "b", "c");
    EXPECT_THAT(printed(findings),
                HasSubstr("Nothing stands in the way. Points: 1 well, 0 notes."));
}

TEST(Report, FitsEightyColumnsWhateverIsFound) {
    Findings findings;
    findings.begin(std::string(70, 'S'));
    for (std::size_t length = 0; length < 200; length += 7) {
        std::string word;
        for (std::size_t i = 0; i < length; ++i) word += "\u00e4";
        findings.problem("a", word, word + " " + word, std::string(length, 'x') + " " + word);
        findings.note("b", std::string(length, ' '), "\xff\xfe" + word, "");
    }
    std::istringstream lines(printed(findings));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(widthOf(line), 80U) << line;
    }
}

TEST(Report, LetsNoTextFromOutsideSteerTheTerminal) {
    EXPECT_EQ(printable("a\033[31mb\nc\td\x7f"), "a?[31mb?c?d?");
    EXPECT_EQ(printable("caf\u00e9 \u20ac \U0001F600"), "caf\u00e9 \u20ac \U0001F600");
    EXPECT_EQ(printable("\u202edrow\u2066\u0085\ufeff"), "?drow???");
    EXPECT_EQ(printable("\xc3"), "?");
    EXPECT_EQ(printable("\xc0\xaf\xed\xa0\x80\xf5\x80"), "???????");
    EXPECT_EQ(printable("\xe2\x82"
                        "a"),
              "??a");
    Findings findings;
    findings.begin("S\033");
    findings.problem("a", "b\033", "c\033", "d\033");
    EXPECT_EQ(printed(findings).find('\033'), std::string::npos);
}

TEST(Json, HoldsAllOfIt) {
    Findings findings;
    findings.begin("Card");
    findings.problem("card.blocked", "PIN 1", "is \"blocked\" \xff", "Unblock it.");
    findings.well("card.acquired", "acquisition", "3 ms");
    const auto report = nlohmann::json::parse(asJson(findings));
    EXPECT_EQ(report["isWell"], false);
    EXPECT_EQ(report["summary"]["problem"], 1);
    EXPECT_EQ(report["summary"]["well"], 1);
    ASSERT_EQ(report["findings"].size(), 2U);
    const auto& first = report["findings"][0];
    EXPECT_EQ(first["section"], "Card");
    EXPECT_EQ(first["id"], "card.blocked");
    EXPECT_EQ(first["verdict"], "problem");
    EXPECT_EQ(first["subject"], "PIN 1");
    EXPECT_EQ(first["found"], "is \"blocked\" \ufffd");
    EXPECT_EQ(first["advice"], "Unblock it.");
    EXPECT_EQ(nlohmann::json::parse(asJson(Findings()))["isWell"], true);
}

}  // namespace
}  // namespace cardhost::doctor
