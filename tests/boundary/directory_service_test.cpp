// What an acquisition tells the directory services, over scripted calls of the platform. Only
// natively; in Wine the real calls meet real servers (tests/system/pairing).
#include <botan/base64.h>

#include "native_platform.h"
#include "platform_side.h"
#include "support/scripted_service.h"

namespace boundary {
namespace {

using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;
using KelmoraID::testing::ScriptedService;

constexpr const char* scope = "CardAcquireContext";
constexpr const char* serviceScope = "AdAttributeService";
const LogLine notParsed{serviceScope, "Could not parse URL."};
const LogLine anomalous{serviceScope, "Receiving anomalous data. Abort."};

class DirectoryService : public ::testing::Test {
protected:
    void TearDown() override {
        writeSetting(Setting::serviceAddresses, "");
        resetPlatform();
    }
    // The lines between those of the acquisition itself.
    LogLines acquire(const std::string& addresses) {
        service.exchanges.clear();
        service.closed.clear();
        writeSetting(Setting::serviceAddresses, addresses);
        DriverLog log;
        EXPECT_EQ(card.acquire(), 0u);
        LogLines file = log.file();
        output = log.output();
        if (file.size() < 2) return file;
        EXPECT_EQ(file[0], (LogLine{scope, "Entering the function"}));
        EXPECT_EQ(file[1], (LogLine{scope, "Entering RegisterCard"}));
        EXPECT_EQ(service.closed.size(), 3 * service.exchanges.size());
        file.erase(file.begin(), file.begin() + 2);
        certificate = card.certificate(0);
        card.release();
        return file;
    }
    // Host, port and whether it is encrypted, of each exchange.
    std::string told() const {
        std::string text;
        for (const auto& exchange : service.exchanges) {
            text += exchange.host + " " + std::to_string(exchange.port) +
                    (exchange.flags == 0 ? "" : " " + std::to_string(exchange.flags)) + ";";
        }
        return text;
    }

    ScriptedService service;
    LogLines output;
    Bytes certificate;
    PlatformSide card{3};
};

TEST_F(DirectoryService, IsToldTheCertificateOfTheFirstContainer) {
    service.reply = {{2, "{}"}};
    EXPECT_EQ(acquire("http://one:80"), LogLines{});
    EXPECT_EQ(output, LogLines{});
    ASSERT_EQ(service.exchanges.size(), 1u);
    const auto& exchange = service.exchanges[0];
    EXPECT_EQ(exchange.body, "{\"smartcard\" : \"NOT USED\", \"certificate\" : \"" +
                                 Botan::base64_encode(certificate) + "\"}");
    EXPECT_EQ(exchange.bodyLength, exchange.body.size());
    EXPECT_EQ(exchange.totalLength, exchange.body.size());
    EXPECT_EQ(service.closed, (std::vector<std::string>{"request", "connection", "session"}));
}

// Nothing is told, and one line says why.
TEST_F(DirectoryService, IsNotLookedForWithoutAnAddress) {
    EXPECT_EQ(acquire(""), (LogLines{{serviceScope,
                                      "No AD service address found. Skip smart card to AD "
                                      "pairing."}}));
    EXPECT_EQ(output, LogLines{});
    EXPECT_EQ(told(), "");
}

struct Addresses {
    const char* setting;
    const char* told;
    int unparsed;
};

TEST_F(DirectoryService, HasAnAddressOfThreePartsAndIsTriedInTurn) {
    const Addresses rows[] = {
        {"http://one:1", "one 1;", 0},
        {"http://one:65535", "one 65535;", 0},
        {"https://one:443", "one 443 8388608;", 0},
        {"http://o:80", "o 80;", 0},
        {"  http://one:80\t; http://two:80", "one 80;", 0},
        {";;  ;http://one:80", "one 80;", 0},
        {"http://one:80x", "one 80;", 0},
        {"http://dead:80;http://one:80;http://two:80", "dead 80;one 80;", 0},
        {"http://dead:80;http://dead:81", "dead 80;dead 81;", 0},
        {"http://one:0", "", 1},
        {"http://one:-1", "", 1},
        {"http://one:65536", "", 1},
        {"ftp://one:80", "", 1},
        {"HTTP://one:80", "", 1},
        {"httpss://one:80", "", 1},
        {"http://one", "", 1},
        {"http://one:80:80", "", 1},
        {"http://:80", "", 1},
        {"http:one:80", "", 1},
        {"http:/one:80", "", 1},
        {"http:x//one:80", "", 1},
        {"one;http://one:80", "one 80;", 1},
    };
    service.failing["dead"] = ScriptedService::unreachable;
    for (const Addresses& row : rows) {
        EXPECT_EQ(acquire(row.setting), LogLines(static_cast<std::size_t>(row.unparsed), notParsed))
            << row.setting;
        EXPECT_EQ(output, LogLines{}) << row.setting;
        EXPECT_EQ(told(), row.told) << row.setting;
    }
}

// About the first size that the registry is offered, and far beyond.
TEST_F(DirectoryService, MayStandFarBackInALongSetting) {
    for (const std::size_t length : {253, 254, 255, 256, 600, 30000}) {
        const std::string address = "http://one:80";
        const LogLines lines = acquire(std::string(length - address.size(), ';') + address);
        EXPECT_EQ(lines, LogLines{}) << length;
        EXPECT_EQ(told(), "one 80;") << length;
    }
}

TEST_F(DirectoryService, ThatFailsAtAnyCallIsFollowedByTheNext) {
    for (const char* call :
         {"WinHttpSendRequest", "WinHttpReceiveResponse", "WinHttpQueryDataAvailable"}) {
        service.failing["dead"] = {call, 12030};
        EXPECT_EQ(acquire("http://dead:80;http://one:80"), LogLines{}) << call;
        EXPECT_EQ(told(), "dead 80;one 80;") << call;
    }
}

struct Reply {
    const char* what;
    std::vector<ScriptedService::Chunk> chunks;
    bool isTaken;
};

TEST_F(DirectoryService, MayAnswerSoMuchAndNoMore) {
    const auto chunk = [](std::size_t size) {
        return ScriptedService::Chunk{static_cast<DWORD>(size), std::string(size, 'x')};
    };
    const Reply rows[] = {
        {"nothing", {}, true},
        {"a chunk of 4000", {chunk(4000)}, true},
        {"a chunk of 4001", {chunk(4001)}, false},
        {"two chunks of 4000", {chunk(4000), chunk(4000)}, true},
        {"a chunk behind 4001 bytes", {chunk(4000), chunk(1), chunk(1)}, false},
        {"a chunk behind 8000 bytes", {chunk(4000), chunk(4000), chunk(1)}, false},
    };
    for (const Reply& row : rows) {
        service.reply = row.chunks;
        EXPECT_EQ(acquire("http://one:80;http://two:80"),
                  row.isTaken ? LogLines{} : LogLines(2, anomalous))
            << row.what;
        EXPECT_EQ(output, row.isTaken ? LogLines{}
                                      : LogLines(2, {"ERROR", "Receiving anomalous data. Abort."}))
            << row.what;
        EXPECT_EQ(told(), row.isTaken ? "one 80;" : "one 80;two 80;") << row.what;
    }
}

TEST_F(DirectoryService, ThatReadsNothingOrFailsToIsFollowedByTheNext) {
    service.reply = {{5, ""}};
    const LogLine noData{serviceScope, "Unexpected error. No data was read? Abort."};
    EXPECT_EQ(acquire("http://one:80;http://two:80"), LogLines(2, noData));
    EXPECT_EQ(output, LogLines{});
    KelmoraID::testing::platformCalls().WinHttpReadData = [](HINTERNET, LPVOID, DWORD,
                                                             LPDWORD) -> BOOL { return FALSE; };
    const LogLine notRead{serviceScope, "Could not read data from the server's response. Abort."};
    EXPECT_EQ(acquire("http://one:80;http://two:80"), LogLines(2, notRead));
    EXPECT_EQ(output, LogLines{});
}

}  // namespace
}  // namespace boundary
