#include "pairing/service_exchange.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/scripted_service.h"
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

// Each call may take its time-out, and the reply has what is left of their sum.
TEST_F(PostToService, CountsTheTimeThatTheCallsTake) {
    addChunk(1);
    service.endless = true;
    steady_clock::time_point time{};
    const auto slow = [&time](auto& call, milliseconds duration) {
        call = [&time, duration, real = call](auto... arguments) {
            time += duration;
            return real(arguments...);
        };
    };
    slow(platformCalls().WinHttpOpen, milliseconds(60000));  // Not counted: ahead of the sending.
    slow(platformCalls().WinHttpSendRequest, milliseconds(9999));
    slow(platformCalls().WinHttpReceiveResponse, milliseconds(5999));
    slow(platformCalls().WinHttpReadData, milliseconds(1));
    const auto clock = [&time] { return time; };
    EXPECT_FALSE(postToService(ServiceScheme::http, utf8ToWide("host"), 80, "body", false, clock));
    EXPECT_EQ(platformCalls().counts["WinHttpReadData"], 2) << "at 15,998 and 15,999 ms";
    expectRefusedAsAnomalous();
}

TEST_F(PostToService, DoesNotExamineTheResultOfTheTimeOuts) {
    platformCalls().failCall("WinHttpSetTimeouts");
    EXPECT_TRUE(post(true));
    EXPECT_EQ(log.output(), LogLines{});
}

// How the platform tells what may go wrong on the way: by the call that fails, its time of the
// calls of that name, and the published code.
struct FailingCall {
    const char* what;
    const char* call;
    int nth;
    DWORD error;
    Names closed;
};

class PostToServiceFailing : public PostToService,
                             public ::testing::WithParamInterface<FailingCall> {
protected:
    // A chunk comes well before the second call of a name.
    void SetUp() override {
        service.reply = {{5, "hello"}, {5, "again"}};
        platformCalls().failCall(GetParam().call, GetParam().nth, GetParam().error);
    }
    // A read is filed; so is nothing else.
    LogLines expectedFile() const {
        if (std::string(GetParam().call) != "WinHttpReadData") return {};
        return {{"AdAttributeService", "Could not read data from the server's response. Abort."}};
    }
};

// Lets the calls that follow a failing one spoil the last error.
void spoilLastErrorOnClose() {
    const auto close = platformCalls().WinHttpCloseHandle;
    platformCalls().WinHttpCloseHandle = [close](HINTERNET handle) -> BOOL {
        SetLastError(77);
        return close(handle);
    };
}

TEST_P(PostToServiceFailing, TellsTheLastErrorAndClosesWhatIsOpen) {
    spoilLastErrorOnClose();
    EXPECT_FALSE(post(true));
    LogLines output;
    if (GetParam().nth == 2) {
        output = {{"DEBUG", "AdAttributeService: Dada size: '5'; total: '5'."},
                  {"DEBUG", "AdAttributeService: Dada: 'hello'"}};
    }
    const std::string call = GetParam().call;
    const bool aborts = call == "WinHttpQueryDataAvailable" || call == "WinHttpReadData";
    output.push_back({"DEBUG", "AdAttributeService: " + call + " error: '" +
                                   std::to_string(GetParam().error) + "'." +
                                   (aborts ? " Abort." : "")});
    EXPECT_EQ(log.output(), output);
    EXPECT_EQ(log.file(), expectedFile());
    EXPECT_EQ(service.closed, GetParam().closed);
    EXPECT_EQ(platformCalls().order.back(),
              GetParam().closed.empty() ? call : "WinHttpCloseHandle");
}

TEST_P(PostToServiceFailing, WritesTheFiledLineOnlyWhenNotAskedForMore) {
    EXPECT_FALSE(post(false));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), expectedFile());
    EXPECT_EQ(service.closed, GetParam().closed);
}

const Names all{"request", "connection", "session"};
const FailingCall failingCalls[] = {
    {"NoWinHttp", "WinHttpOpen", 1, 120, {}},
    {"HostThatIsNone", "WinHttpConnect", 1, 12005, {"session"}},
    {"RequestThatCannotBe", "WinHttpOpenRequest", 1, 87, {"connection", "session"}},
    {"NameWithoutAnAddress", "WinHttpSendRequest", 1, 12007, all},
    {"NobodyListens", "WinHttpSendRequest", 1, 12029, all},
    {"ConnectionNotMadeInTime", "WinHttpSendRequest", 1, 12002, all},
    {"CutWhileSending", "WinHttpSendRequest", 1, 12030, all},
    {"CertificateNobodyVouchesFor", "WinHttpSendRequest", 1, 12175, all},
    {"NoTlsBehindHttps", "WinHttpSendRequest", 1, 12157, all},
    {"NoReplyInTime", "WinHttpReceiveResponse", 1, 12002, all},
    {"CutBeforeTheReply", "WinHttpReceiveResponse", 1, 12030, all},
    {"ReplyThatIsNoHttp", "WinHttpReceiveResponse", 1, 12152, all},
    {"HeaderWithoutEnd", "WinHttpReceiveResponse", 1, 12182, all},
    {"RedirectThatFails", "WinHttpReceiveResponse", 1, 12156, all},
    {"NoBodyInTime", "WinHttpQueryDataAvailable", 1, 12002, all},
    {"CutBeforeTheBody", "WinHttpQueryDataAvailable", 1, 12030, all},
    {"SilentWithinTheBody", "WinHttpQueryDataAvailable", 2, 12002, all},
    {"CutWithinTheBody", "WinHttpQueryDataAvailable", 2, 12030, all},
    {"FirstReadNotInTime", "WinHttpReadData", 1, 12002, all},
    {"CutWithinTheFirstRead", "WinHttpReadData", 1, 12030, all},
    {"CutWithinALaterRead", "WinHttpReadData", 2, 12030, all},
};
INSTANTIATE_TEST_SUITE_P(Calls, PostToServiceFailing, ::testing::ValuesIn(failingCalls),
                         [](const auto& info) { return std::string(info.param.what); });

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
