#include "pairing/service_exchange.h"

#include <gtest/gtest.h>

#include "pairing/scripted_service.h"
#include "support/log_capture.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using testing::ScriptedService;
using Names = std::vector<std::string>;

constexpr const char* anomalous = "Receiving anomalous data. Abort.";

class PostToService : public ::testing::Test {
protected:
    bool post(bool debug = false) {
        return postToService(ServiceScheme::http, utf8ToWide("host"), 80, "body", debug);
    }
    void addChunk(std::size_t size, char letter = 'x') {
        service.reply.push_back({static_cast<DWORD>(size), std::string(size, letter)});
    }
    void expectAllClosed() {
        EXPECT_EQ(service.closed, (Names{"request", "connection", "session"}));
    }
    void expectRefusedAsAnomalous() {
        EXPECT_EQ(log.file(), (LogLines{{"AdAttributeService", anomalous}}));
        EXPECT_EQ(log.output(), (LogLines{{"ERROR", anomalous}}));
        expectAllClosed();
    }

    PlatformCallsGuard guard;
    LogCapture log;
    ScriptedService service;
};

TEST_F(PostToService, MakesTheCallsInTheirOrder) {
    service.reply = {{5, "hello"}};
    EXPECT_TRUE(post());
    Names calls = platformCalls().order;
    std::erase(calls, "MultiByteToWideChar");
    std::erase(calls, "WideCharToMultiByte");
    EXPECT_EQ(calls,
              (Names{"WinHttpOpen", "WinHttpConnect", "WinHttpOpenRequest", "WinHttpSetTimeouts",
                     "WinHttpSendRequest", "WinHttpReceiveResponse", "WinHttpQueryDataAvailable",
                     "WinHttpReadData", "WinHttpQueryDataAvailable", "WinHttpCloseHandle",
                     "WinHttpCloseHandle", "WinHttpCloseHandle"}));
    expectAllClosed();
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PostToService, GoesToTheHostAndThePortUnencryptedForHttp) {
    EXPECT_TRUE(post());
    ASSERT_EQ(service.exchanges.size(), 1U);
    EXPECT_EQ(service.exchanges[0].host, "host");
    EXPECT_EQ(service.exchanges[0].port, 80);
    EXPECT_EQ(service.exchanges[0].flags, 0U);
}

TEST_F(PostToService, GoesEncryptedForHttps) {
    EXPECT_TRUE(postToService(ServiceScheme::https, utf8ToWide("host"), 65535, "", false));
    ASSERT_EQ(service.exchanges.size(), 1U);
    EXPECT_EQ(service.exchanges[0].port, 65535);
    EXPECT_EQ(service.exchanges[0].flags, 0x00800000U);
}

TEST_F(PostToService, SendsTheBodyUpToItsFirstNul) {
    EXPECT_TRUE(postToService(ServiceScheme::http, utf8ToWide("host"), 80,
                              std::string("left\0out", 8), false));
    ASSERT_EQ(service.exchanges.size(), 1U);
    EXPECT_EQ(service.exchanges[0].body, "left");
    EXPECT_EQ(service.exchanges[0].bodyLength, 4U);
    EXPECT_EQ(service.exchanges[0].totalLength, 4U);
}

TEST_F(PostToService, AcceptsAReplyWithoutABody) {
    EXPECT_TRUE(post(true));
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 0);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PostToService, TellsEachChunkWhenAskedFor) {
    service.reply = {{5, "hello"}, {10, "part"}, {3, std::string("a\0b", 3)}};
    EXPECT_TRUE(post(true));
    EXPECT_EQ(log.output(), (LogLines{
                                {"DEBUG", "AdAttributeService: Dada size: '5'; total: '5'."},
                                {"DEBUG", "AdAttributeService: Dada: 'hello'"},
                                {"DEBUG", "AdAttributeService: Dada size: '4'; total: '9'."},
                                {"DEBUG", "AdAttributeService: Dada: 'part'"},
                                {"DEBUG", "AdAttributeService: Dada size: '3'; total: '12'."},
                                {"DEBUG", "AdAttributeService: Dada: 'a'"},
                            }));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PostToService, ReadsAChunkOfExactly4000Bytes) {
    addChunk(4000);
    EXPECT_TRUE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 1);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(PostToService, RefusesAChunkOf4001Bytes) {
    addChunk(4001);
    EXPECT_FALSE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 0);
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, ReadsOneMoreChunkAtATotalOf4000) {
    addChunk(4000);
    addChunk(4000);
    EXPECT_TRUE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 2);
}

TEST_F(PostToService, EndsWellAtATotalOf4001WithoutAFurtherChunk) {
    addChunk(4000);
    addChunk(1);
    EXPECT_TRUE(post());
}

TEST_F(PostToService, RefusesAnyChunkFromATotalOf4001On) {
    addChunk(4000);
    addChunk(1);
    addChunk(1);
    EXPECT_FALSE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 2);
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, CountsTheBytesThatWereReadAndNotThoseAnnounced) {
    for (int i = 0; i < 3; ++i) service.reply.push_back({4000, "x"});
    EXPECT_TRUE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 3);
}

TEST_F(PostToService, EndsAReplyWithoutEnd) {
    addChunk(1);
    service.endless = true;
    EXPECT_FALSE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 4001);
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, SurvivesAPlatformThatClaimsMoreThanItWasAskedFor) {
    service.reply = {{4, "text"}, {4, "text"}};
    platformCalls().WinHttpReadData = [](HINTERNET, LPVOID buffer, DWORD count,
                                         LPDWORD bytesRead) -> BOOL {
        std::fill_n(static_cast<char*>(buffer), count, 'x');
        *bytesRead = 0xFFFFFFFF;
        return TRUE;
    };
    EXPECT_FALSE(post());
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 1);
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, RefusesADrippingReplyWhenTheTimeOfAllTimeOutsIsSpent) {
    addChunk(1);
    service.endless = true;
    // A byte every five seconds; the first look at the clock is that at the sending.
    steady_clock::time_point time{};
    const auto clock = [&] {
        const auto now = time;
        time += milliseconds(5000);
        return now;
    };
    EXPECT_FALSE(postToService(ServiceScheme::http, utf8ToWide("host"), 80, "body", false, clock));
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 3) << "at 5, 10 and 15 seconds";
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, ReadsUpToTheLastMillisecondOfThatTime) {
    addChunk(1);
    addChunk(1);
    std::vector<milliseconds> times{milliseconds(0), milliseconds(15999), milliseconds(16000)};
    std::size_t asked = 0;
    const auto clock = [&] { return steady_clock::time_point(times.at(asked++)); };
    EXPECT_FALSE(postToService(ServiceScheme::http, utf8ToWide("host"), 80, "body", false, clock));
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 1);
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, AcceptsAReplyThatIsCompleteHoweverLate) {
    addChunk(1);
    std::vector<milliseconds> times{milliseconds(0), milliseconds(15999)};
    std::size_t asked = 0;
    const auto clock = [&] { return steady_clock::time_point(times.at(asked++)); };
    EXPECT_TRUE(postToService(ServiceScheme::http, utf8ToWide("host"), 80, "body", false, clock));
    EXPECT_EQ(asked, 2U) << "the end of the reply asks no clock";
}

TEST_F(PostToService, StartsTheTimeAtTheSending) {
    const auto clock = [&] {
        EXPECT_EQ(platformCalls().counts["WinHttpSetTimeouts"], 1);
        EXPECT_EQ(platformCalls().counts["WinHttpSendRequest"], 0);
        return steady_clock::time_point{};
    };
    EXPECT_TRUE(postToService(ServiceScheme::http, utf8ToWide("host"), 80, "body", false, clock));
}

TEST_F(PostToService, DoesNotExamineTheResultOfTheTimeOuts) {
    platformCalls().failCall("WinHttpSetTimeouts");
    EXPECT_TRUE(post(true));
    EXPECT_EQ(log.output(), LogLines{});
}

struct FailingCall {
    const char* name;
    LogLines output;
    LogLines file;
    Names closed;
};

class PostToServiceFailing : public PostToService,
                             public ::testing::WithParamInterface<FailingCall> {};

// Lets the calls that follow a failing one spoil the last error.
void spoilLastErrorOnClose() {
    const auto close = platformCalls().WinHttpCloseHandle;
    platformCalls().WinHttpCloseHandle = [close](HINTERNET handle) -> BOOL {
        SetLastError(77);
        return close(handle);
    };
}

TEST_P(PostToServiceFailing, TellsTheLastErrorAndClosesWhatIsOpen) {
    service.reply = {{5, "hello"}};
    spoilLastErrorOnClose();
    platformCalls().failCall(GetParam().name, 1, 12002);
    EXPECT_FALSE(post(true));
    EXPECT_EQ(log.output(), GetParam().output);
    EXPECT_EQ(log.file(), GetParam().file);
    EXPECT_EQ(service.closed, GetParam().closed);
}

TEST_P(PostToServiceFailing, WritesTheFiledLineOnlyWhenNotAskedForMore) {
    service.reply = {{5, "hello"}};
    platformCalls().failCall(GetParam().name, 1, 12002);
    EXPECT_FALSE(post(false));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), GetParam().file);
    EXPECT_EQ(service.closed, GetParam().closed);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, PostToServiceFailing,
    ::testing::Values(
        FailingCall{
            "WinHttpOpen", {{"DEBUG", "AdAttributeService: WinHttpOpen error: '12002'."}}, {}, {}},
        FailingCall{"WinHttpConnect",
                    {{"DEBUG", "AdAttributeService: WinHttpConnect error: '12002'."}},
                    {},
                    {"session"}},
        FailingCall{"WinHttpOpenRequest",
                    {{"DEBUG", "AdAttributeService: WinHttpOpenRequest error: '12002'."}},
                    {},
                    {"connection", "session"}},
        FailingCall{"WinHttpSendRequest",
                    {{"DEBUG", "AdAttributeService: WinHttpSendRequest error: '12002'."}},
                    {},
                    {"request", "connection", "session"}},
        FailingCall{"WinHttpReceiveResponse",
                    {{"DEBUG", "AdAttributeService: WinHttpReceiveResponse error: '12002'."}},
                    {},
                    {"request", "connection", "session"}},
        FailingCall{
            "WinHttpQueryDataAvailable",
            {{"DEBUG", "AdAttributeService: WinHttpQueryDataAvailable error: '12002'. Abort."}},
            {},
            {"request", "connection", "session"}},
        FailingCall{
            "WinHttpReadData",
            {{"DEBUG", "AdAttributeService: WinHttpReadData error: '12002'. Abort."}},
            {{"AdAttributeService", "Could not read data from the server's response. Abort."}},
            {"request", "connection", "session"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PostToService, FailsWhenALaterQueryFails) {
    service.reply = {{5, "hello"}};
    platformCalls().failCall("WinHttpQueryDataAvailable", 2, 12030);
    EXPECT_FALSE(post(false));
    EXPECT_EQ(log.output(), LogLines{});
    expectAllClosed();
}

TEST_F(PostToService, FailsWhenNoByteIsRead) {
    service.reply = {{5, ""}};
    SetLastError(12152);
    EXPECT_FALSE(post(true));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "Unexpected error ('12152'). No data was read? Abort."}}));
    EXPECT_EQ(log.file(),
              (LogLines{{"AdAttributeService", "Unexpected error. No data was read? Abort."}}));
    expectAllClosed();
}

TEST_F(PostToService, FilesTheReadOfNoByteAlsoWhenNotAskedForMore) {
    service.reply = {{5, ""}};
    EXPECT_FALSE(post(false));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(),
              (LogLines{{"AdAttributeService", "Unexpected error. No data was read? Abort."}}));
}

}  // namespace
}  // namespace KelmoraID
