#include "registry/registry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>

#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;

WideString textOf(std::size_t length) {
    WideString text(length, WIDE_TEXT('x'));
    if (length > 0) text.back() = WIDE_TEXT('!');
    return text;
}

// A registry with one value, as the platform's behaves: it tells the needed size when the buffer
// is too small, and fills the buffer otherwise.
class Registry {
public:
    explicit Registry(WideString value) : value_(std::move(value)) {
        platformCalls().RegGetValueW = [this](HKEY root, LPCWSTR key, LPCWSTR name, DWORD flags,
                                              LPDWORD type, PVOID data, LPDWORD size) -> LSTATUS {
            EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
            EXPECT_EQ(WideString(key), WIDE_TEXT("SOFTWARE\\A key"));
            EXPECT_EQ(WideString(name), WIDE_TEXT("A value"));
            EXPECT_EQ(flags, 2U);
            EXPECT_EQ(type, nullptr);
            offered.push_back(*size);
            const DWORD needed = static_cast<DWORD>((value_.size() + 1) * sizeof(WCHAR));
            const bool enough = *size >= needed;
            *size = needed;
            if (!enough) return ERROR_MORE_DATA;
            std::memcpy(data, value_.c_str(), needed);
            return ERROR_SUCCESS;
        };
    }
    std::vector<DWORD> offered;

private:
    WideString value_;
};

// Answers with these statuses and reported sizes in turn, the last one for ever.
struct Answers {
    struct Answer {
        LSTATUS status;
        DWORD reported;
    };
    explicit Answers(std::deque<Answer> list) : answers(std::move(list)) {
        platformCalls().RegGetValueW = [this](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID data,
                                              LPDWORD size) -> LSTATUS {
            offered.push_back(*size);
            // All that is offered may be written.
            std::memset(data, 0x41, *size);
            const Answer answer = answers.front();
            if (answers.size() > 1) answers.pop_front();
            *size = answer.reported;
            return answer.status;
        };
    }
    std::deque<Answer> answers;
    std::vector<DWORD> offered;
};

WideString read() {
    // The name as its readers give it: with a terminator of its own.
    return readRegistryString(WIDE_TEXT("SOFTWARE\\A key"), utf8ToWide("A value"));
}

class ReadRegistryString : public ::testing::Test {
protected:
    void expectNoLine() {
        EXPECT_EQ(log.output(), LogLines{});
        EXPECT_EQ(log.file(), LogLines{});
    }
    void expectFailureLines(const std::string& status) {
        EXPECT_EQ(log.output(),
                  (LogLines{{"ERROR", "Could not read registry. Windows system error code: '" +
                                          status + "'."}}));
        EXPECT_EQ(log.file(), (LogLines{{"AdAttributeService", "Could not read registry."}}));
    }

    PlatformCallsGuard guard;
    LogCapture log;
};

TEST_F(ReadRegistryString, GivesTheTextWithoutItsTerminator) {
    Registry registry(WIDE_TEXT("https://host:443"));
    EXPECT_EQ(read(), WIDE_TEXT("https://host:443"));
    EXPECT_EQ(registry.offered, std::vector<DWORD>{510});
    expectNoLine();
}

TEST_F(ReadRegistryString, GivesAnEmptyValueWithoutALine) {
    Registry registry(WIDE_TEXT(""));
    EXPECT_EQ(read(), WideString());
    expectNoLine();
}

TEST_F(ReadRegistryString, GivesNothingAndNoLineForAMissingKeyOrValue) {
    Answers answers({{ERROR_FILE_NOT_FOUND, 510}});
    EXPECT_EQ(read(), WideString());
    EXPECT_EQ(answers.offered.size(), 1U);
    expectNoLine();
}

TEST_F(ReadRegistryString, ReportsAValueOfAnotherType) {
    Answers answers({{ERROR_UNSUPPORTED_TYPE, 4}});
    EXPECT_EQ(read(), WideString());
    EXPECT_EQ(answers.offered.size(), 1U);
    expectFailureLines("1630");
}

TEST_F(ReadRegistryString, ReadsTheLongestValueOfTheFirstBuffer) {
    Registry registry(textOf(254));
    EXPECT_EQ(read(), textOf(254));
    EXPECT_EQ(registry.offered, std::vector<DWORD>{510});
}

TEST_F(ReadRegistryString, GoesOnFromThePresentLengthWhenThatIsWhatIsAskedFor) {
    // 255 characters and a terminator: N is 256 and above 255, so 256 bytes are offered, a count
    // of characters; then N is not above 256 any more.
    Registry registry(textOf(255));
    EXPECT_EQ(read(), textOf(255));
    EXPECT_EQ(registry.offered, (std::vector<DWORD>{510, 256, 2 * (256 + 255)}));
    expectNoLine();
}

TEST_F(ReadRegistryString, OffersACountOfCharactersWhereBytesAreMeantAndThenEnough) {
    Registry registry(textOf(1000));
    EXPECT_EQ(read(), textOf(1000));
    EXPECT_EQ(registry.offered, (std::vector<DWORD>{510, 1001, 2 * (1001 + 255)}));
    expectNoLine();
}

TEST_F(ReadRegistryString, ReadsAVeryLongValueWhole) {
    Registry registry(textOf(500000));
    EXPECT_EQ(read(), textOf(500000));
    EXPECT_EQ(registry.offered.size(), 3U);
}

TEST_F(ReadRegistryString, FollowsAValueThatGrowsMeanwhile) {
    Answers answers({{ERROR_MORE_DATA, 600},
                     {ERROR_MORE_DATA, 800},
                     {ERROR_MORE_DATA, 800},
                     {ERROR_SUCCESS, 802}});
    EXPECT_EQ(read().size(), 400U);
    EXPECT_EQ(answers.offered, (std::vector<DWORD>{510, 300, 400, 2 * (400 + 255)}));
}

TEST_F(ReadRegistryString, TakesMissingLaterForAFailure) {
    Answers answers({{ERROR_MORE_DATA, 600}, {ERROR_FILE_NOT_FOUND, 0}});
    EXPECT_EQ(read(), WideString());
    expectFailureLines("2");
}

TEST_F(ReadRegistryString, GivesUpOnARegistryThatAsksForMoreForEver) {
    Answers answers({{ERROR_MORE_DATA, 0}});
    EXPECT_EQ(read(), WideString());
    EXPECT_EQ(answers.offered.size(), 64U);
    EXPECT_EQ(answers.offered[1], 2U * (255 + 255));
    EXPECT_EQ(answers.offered[63], 2U * (255 + 63 * 255));
    expectFailureLines("234");
}

TEST_F(ReadRegistryString, GivesUpOnASizeThatIsNone) {
    constexpr DWORD most = 2 * 0x1000000;
    for (const DWORD reported : {DWORD{0xFFFFFFFF}, most + 2}) {
        Answers answers({{ERROR_MORE_DATA, reported}});
        EXPECT_EQ(read(), WideString());
        EXPECT_EQ(answers.offered.size(), 1U);
        expectFailureLines("234");
    }
    Answers answers({{ERROR_MORE_DATA, most}, {ERROR_SUCCESS, 2}});
    EXPECT_EQ(read(), WideString());
    EXPECT_EQ(answers.offered.size(), 2U);
    expectNoLine();
}

TEST_F(ReadRegistryString, TakesASuccessWithoutATerminatorForAnEmptyValue) {
    for (const DWORD reported : {0U, 1U, 2U}) {
        Answers answers({{ERROR_SUCCESS, reported}});
        EXPECT_EQ(read(), WideString()) << reported;
    }
    expectNoLine();
}

TEST_F(ReadRegistryString, TakesNoMoreThanItsBufferHolds) {
    Answers answers({{ERROR_SUCCESS, 0xFFFFFFFF}});
    EXPECT_EQ(read(), WideString(254, WCHAR{0x4141}));
    expectNoLine();
}

TEST(RegistrySettings, AreTheTwoOfTheSystem) {
    EXPECT_EQ(serviceAddressKey, WIDE_TEXT("SOFTWARE\\Kelmora\\KelmoraID\\"));
    EXPECT_STREQ(serviceAddressValue, "ADRSURL");
    EXPECT_EQ(companionRunKey,
              WIDE_TEXT("SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Run"));
    EXPECT_STREQ(companionRunValue, "Kelmora ID");
}

}  // namespace
}  // namespace KelmoraID
