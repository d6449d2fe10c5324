#include "error_names/error_names.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>

#include "error_names/error_name_table.h"
#include "hash/hash_text.h"
#include "support/log_capture.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;

constexpr const char* unmapped = "error unmapped (errorMAp)";

TEST(ErrorNames, HoldThePublishedListWholeAndInItsOrder) {
    ASSERT_EQ(errorNameCount(), 6381U);
    std::string list;
    for (std::size_t i = 0; i < errorNameCount(); ++i) {
        const auto [code, name] = errorNamePair(i);
        list += fmt::format("0x{:08X}\t{}\n", code, name);
    }
    // The digest of the list that tools/make_error_names.py is given.
    EXPECT_EQ(HashText::hexDigest("SHA-256", list),
              "4BB7D44DF4C6420FCEB111A391477DF990605B9B06F2A5EC2E3918A0AEAEBB24");
}

TEST(ErrorNames, BeginWithTheTwoGeneralFailures) {
    EXPECT_EQ(errorNamePair(0).code, 0x8000FFFFU);
    EXPECT_EQ(errorNamePair(0).name, "E_UNEXPECTED");
    EXPECT_EQ(errorNamePair(1).code, 0x80004001U);
    EXPECT_EQ(errorNamePair(1).name, "E_NOTIMPL");
}

TEST(ErrorName, GivesTheFirstNameOfEveryCodeOfTheList) {
    std::map<DWORD, std::string> first;
    for (std::size_t i = 0; i < errorNameCount(); ++i) {
        const auto [code, name] = errorNamePair(i);
        first.emplace(code, name);
    }
    EXPECT_LT(first.size(), errorNameCount()) << "no code has two names";
    for (const auto& [code, name] : first) {
        EXPECT_EQ(errorName(code), name) << fmt::format("{:#010x}", code);
    }
}

TEST(ErrorName, GivesNothingBetweenTheCodesOfTheList) {
    std::map<DWORD, bool> known;
    for (std::size_t i = 0; i < errorNameCount(); ++i) known[errorNamePair(i).code] = true;
    int asked = 0;
    for (const auto& entry : known) {
        for (const DWORD neighbour : {entry.first - 1, entry.first + 1}) {
            if (known.count(neighbour) != 0) continue;
            EXPECT_EQ(errorName(neighbour), unmapped) << fmt::format("{:#010x}", neighbour);
            ++asked;
        }
    }
    EXPECT_GT(asked, 100);
}

TEST(ErrorName, KnowsTheTellingCodes) {
    EXPECT_EQ(errorName(0x8000FFFF), "E_UNEXPECTED");
    EXPECT_EQ(errorName(0x80004001), "E_NOTIMPL");
    EXPECT_EQ(errorName(0x8010001F), "SCARD_E_UNEXPECTED");
    EXPECT_EQ(errorName(0x8010006A), "SCARD_W_SECURITY_VIOLATION");
}

TEST(ErrorName, OfACodeOutsideTheListIsTheUnmappedText) {
    EXPECT_EQ(errorName(0xFFFFFFFF), unmapped);
    EXPECT_EQ(errorName(0x12345678), unmapped);
}

TEST(CheckResult, OfEqualCodesWritesNothing) {
    LogCapture log;
    EXPECT_TRUE(checkResult(0x8010001F, 0x8010001F, "expected"));
    EXPECT_TRUE(checkResult(0, 0, ""));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(CheckResult, NamesTheExpectedCodeAsTold) {
    LogCapture log;
    EXPECT_FALSE(checkResult(0x8010001F, 0x8010006A, "a closed PIN"));
    EXPECT_EQ(log.output(),
              (LogLines{{"ERROR",
                         "'Result: SCARD_E_UNEXPECTED '0x8010001F' != '0x8010006A' <- "
                         "Expected(a closed PIN)"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(CheckResult, NamesTheExpectedCodeFromTheTableWhenNothingIsTold) {
    LogCapture log;
    EXPECT_FALSE(checkResult(0xABC12345, 0x8010006A, ""));
    EXPECT_EQ(log.output(),
              (LogLines{{"ERROR",
                         "'Result: error unmapped (errorMAp) '0xABC12345' != '0x8010006A' <- "
                         "Expected(SCARD_W_SECURITY_VIOLATION)"}}));
}

TEST(LogResultName, WritesThePrefixAndTheNameAsAWarning) {
    LogCapture log;
    logResultName("SCardConnect: ", 0x8010001F);
    logResultName("", 0xABC12345);
    EXPECT_EQ(log.output(),
              (LogLines{{"WARNING", "SCardConnect: SCARD_E_UNEXPECTED"}, {"WARNING", unmapped}}));
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
