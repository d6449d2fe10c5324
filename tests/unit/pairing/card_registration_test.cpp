#include "pairing/card_registration.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "support/log_capture.h"
#include "support/scripted_service.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using testing::ScriptedService;
using Texts = std::vector<std::string>;

const ByteVector certificate{0x30, 0x82, 0xFF};
constexpr const char* expectedBody = R"({"smartcard" : "NOT USED", "certificate" : "MIL/"})";
constexpr const char* alreadyRunning =
    "Another registercard action is already running. Do not attempt to pair card.";

void setAddresses(const std::string& setting) {
    platformCalls().RegGetValueW = [setting](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID data,
                                             LPDWORD size) -> LSTATUS {
        if (setting.empty()) return ERROR_FILE_NOT_FOUND;
        const WideString wide = utf8ToWide(setting);
        *size = static_cast<DWORD>(wide.size() * sizeof(WCHAR));
        std::memcpy(data, wide.data(), *size);
        return ERROR_SUCCESS;
    };
}

class CardRegistration : public ::testing::Test {
protected:
    Texts hosts() const {
        Texts hosts;
        for (const auto& exchange : service.exchanges) hosts.push_back(exchange.host);
        return hosts;
    }
    void expectOutput(const LogLines& lines) { EXPECT_EQ(log.output(), lines); }
    void expectFile(const LogLines& lines) { EXPECT_EQ(log.file(), lines); }

    PlatformCallsGuard guard;
    LogCapture log;
    ScriptedService service;
};

using RegisterCardTest = CardRegistration;
using RegisterAcquiredCard = CardRegistration;

TEST_F(RegisterCardTest, SendsTheCertificateAsJson) {
    setAddresses("https://host:443");
    RegisterCard(certificate, false);
    ASSERT_EQ(service.exchanges.size(), 1U);
    EXPECT_EQ(service.exchanges[0].body, expectedBody);
    EXPECT_EQ(service.exchanges[0].bodyLength, std::strlen(expectedBody));
    expectOutput({});
    expectFile({});
}

TEST_F(RegisterCardTest, StopsAtTheFirstServiceThatAccepts) {
    setAddresses("http://first:80;http://second:80");
    RegisterCard(certificate, false);
    EXPECT_EQ(hosts(), Texts{"first"});
}

TEST_F(RegisterCardTest, GoesOnToTheNextServiceUntilOneAccepts) {
    setAddresses("http://first:80;http://second:80;http://third:80");
    service.failing = {{"first", ScriptedService::unreachable}};
    RegisterCard(certificate, false);
    EXPECT_EQ(hosts(), (Texts{"first", "second"}));
    expectOutput({});
    expectFile({});
}

TEST_F(RegisterCardTest, GoesOnBehindAServiceThatFailsInAnyWay) {
    setAddresses("https://first:443;http://second:80");
    const ScriptedService::Failure failures[] = {
        {"WinHttpSendRequest", 12002},         // takes no connection in time
        {"WinHttpSendRequest", 12175},         // nobody vouches for its certificate
        {"WinHttpReceiveResponse", 12002},     // does not answer
        {"WinHttpReceiveResponse", 12156},     // sends elsewhere, where it may not
        {"WinHttpQueryDataAvailable", 12030},  // goes within its reply
    };
    for (const ScriptedService::Failure& failure : failures) {
        service.exchanges.clear();
        service.failing = {{"first", failure}};
        RegisterCard(certificate, false);
        EXPECT_EQ(hosts(), (Texts{"first", "second"})) << failure.call << ' ' << failure.error;
    }
    expectOutput({});
    expectFile({});
}

TEST_F(RegisterCardTest, ReturnsQuietlyWhenNoneAccepts) {
    setAddresses("http://first:80;http://second:80");
    service.failing = {{"first", ScriptedService::unreachable},
                       {"second", ScriptedService::unreachable}};
    RegisterCard(certificate, false);
    EXPECT_EQ(hosts(), (Texts{"first", "second"}));
    expectOutput({});
    expectFile({});
}

TEST_F(RegisterCardTest, GoesOnBehindAnAddressThatItCannotParse) {
    setAddresses("first;http://second:80");
    RegisterCard(certificate, false);
    EXPECT_EQ(hosts(), Texts{"second"});
    expectFile({{"AdAttributeService", "Could not parse URL."}});
}

TEST_F(RegisterCardTest, SkipsBlankPartsAndTrimsTheOthers) {
    setAddresses(" ;\thttp://first:80 \r\n;;http://second:80;");
    service.failing = {{"first", ScriptedService::unreachable},
                       {"second", ScriptedService::unreachable}};
    RegisterCard(certificate, false);
    EXPECT_EQ(hosts(), (Texts{"first", "second"}));
    expectOutput({});
    expectFile({});
}

TEST_F(RegisterCardTest, TellsTheAddressesAsTheyStandWhenAskedFor) {
    setAddresses(" ;http://first:80 ;");
    RegisterCard(certificate, true);
    expectOutput({
        {"DEBUG", "Vector part '0'; value: ' '."},
        {"DEBUG", "Vector part '1'; value: 'http://first:80 '."},
        {"DEBUG", std::string("AdAttributeService: Query (length 50): '") + expectedBody + "'."},
    });
    expectFile({});
}

TEST_F(RegisterCardTest, FilesAMissingAddressAndTouchesNoNetwork) {
    setAddresses("");
    RegisterCard(certificate, true);
    expectOutput({});
    expectFile(
        {{"AdAttributeService", "No AD service address found. Skip smart card to AD pairing."}});
    EXPECT_EQ(hosts(), Texts{});
}

TEST_F(RegisterCardTest, FilesACertificateThatCannotBeEncodedAndReadsNoSetting) {
    platformCalls().failCall("CryptBinaryToStringA", 1);
    RegisterCard(certificate, false);
    expectOutput({{"ERROR", "AdAttributeService: Failed to calculate base64 string length."}});
    expectFile(
        {{"AdAttributeService", "Certificate handling failure. Skip smart card to AD pairing."}});
    EXPECT_EQ(platformCalls().counts["RegGetValueW"], 0);
}

TEST_F(RegisterCardTest, LetsTheExceptionOfAPortPassAndTriesNoFurtherAddress) {
    setAddresses("http://first:port;http://second:80");
    EXPECT_THROW(RegisterCard(certificate, false), std::invalid_argument);
    EXPECT_EQ(hosts(), Texts{});
    expectOutput({});
    expectFile({});
}

TEST_F(RegisterAcquiredCard, RegistersWithoutGatedLines) {
    setAddresses("http://first:80");
    service.reply = {{5, "hello"}};
    registerAcquiredCard(certificate);
    EXPECT_EQ(hosts(), Texts{"first"});
    expectOutput({});
    expectFile({{"CardAcquireContext", "Entering RegisterCard"}});
}

TEST_F(RegisterAcquiredCard, RegistersAtEachAcquisitionAnew) {
    setAddresses("http://first:80");
    registerAcquiredCard(certificate);
    registerAcquiredCard(certificate);
    EXPECT_EQ(hosts(), (Texts{"first", "first"}));
    expectOutput({});
    expectFile({{"CardAcquireContext", "Entering RegisterCard"},
                {"CardAcquireContext", "Entering RegisterCard"}});
}

TEST_F(RegisterAcquiredCard, FilesAMissingAddress) {
    setAddresses("");
    registerAcquiredCard(certificate);
    expectOutput({});
    expectFile(
        {{"CardAcquireContext", "Entering RegisterCard"},
         {"AdAttributeService", "No AD service address found. Skip smart card to AD pairing."}});
}

TEST_F(RegisterAcquiredCard, RefusesAnOverlappingCall) {
    setAddresses("http://first:80");
    const auto receive = platformCalls().WinHttpReceiveResponse;
    platformCalls().WinHttpReceiveResponse = [&](HINTERNET request, LPVOID reserved) -> BOOL {
        registerAcquiredCard(certificate);
        return receive(request, reserved);
    };
    registerAcquiredCard(certificate);
    EXPECT_EQ(hosts(), Texts{"first"});
    expectOutput({{"WARNING", alreadyRunning}});
    expectFile(
        {{"CardAcquireContext", "Entering RegisterCard"}, {"CardAcquireContext", alreadyRunning}});
    // Afterwards the way is free again.
    platformCalls().WinHttpReceiveResponse = receive;
    registerAcquiredCard(certificate);
    EXPECT_EQ(hosts(), (Texts{"first", "first"}));
}

TEST_F(RegisterAcquiredCard, DoesNothingWhenItIsSwitchedOff) {
    setAddresses("http://first:80");
    setSkipRegisterCard(true);
    registerAcquiredCard(certificate);
    EXPECT_EQ(platformCalls().order, Texts{});
    expectOutput({});
    expectFile({});
    setSkipRegisterCard(false);
    registerAcquiredCard(certificate);
    EXPECT_EQ(hosts(), Texts{"first"});
}

// An exception marks the process for good, so it happens in a process of its own.
void throwOnceAndThenTryAgain() {
    PlatformCallsGuard guard;
    LogCapture log;
    ScriptedService service;
    setAddresses("http://first:port");
    bool threw = false;
    try {
        registerAcquiredCard(certificate);
    } catch (const std::invalid_argument&) {
        threw = true;
    }
    const LogLines firstFile = log.file();
    const LogLines firstOutput = log.output();
    setAddresses("http://first:80");
    registerAcquiredCard(certificate);
    registerAcquiredCard(certificate);
    const bool asMeant =
        threw && firstFile == LogLines{{"CardAcquireContext", "Entering RegisterCard"}} &&
        firstOutput.empty() && service.exchanges.empty() &&
        log.file() == LogLines{{"CardAcquireContext", alreadyRunning},
                               {"CardAcquireContext", alreadyRunning}} &&
        log.output() == LogLines{{"WARNING", alreadyRunning}, {"WARNING", alreadyRunning}};
    std::fputs(asMeant ? "registers no card any more" : "something else", stderr);
    std::_Exit(asMeant ? 0 : 1);
}

TEST(RegisterAcquiredCardDeathTest, RegistersNoCardAnyMoreOnceAnExceptionHasPassed) {
    EXPECT_EXIT(throwOnceAndThenTryAgain(), ::testing::ExitedWithCode(0),
                "^registers no card any more$");
}

}  // namespace
}  // namespace KelmoraID
