#include "pairing/service_client.h"

#include <gtest/gtest.h>

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

class ServiceClient : public ::testing::Test {
protected:
    void expectNoLine() {
        EXPECT_EQ(log.output(), LogLines{});
        EXPECT_EQ(log.file(), LogLines{});
    }
    void expectNoNetwork() { EXPECT_EQ(platformCalls().counts["WinHttpOpen"], 0); }

    PlatformCallsGuard guard;
    LogCapture log;
    ScriptedService service;
};

using EncodeBase64 = ServiceClient;
using ReadServiceAddresses = ServiceClient;
using SendServiceRequest = ServiceClient;
using LogVectorParts = ServiceClient;

TEST_F(EncodeBase64, GivesThePublishedEncodings) {
    // RFC 4648, section 10.
    const std::pair<std::string, std::string> vectors[] = {
        {"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [text, encoded] : vectors) {
        EXPECT_EQ(encodeBase64(ByteVector(text.begin(), text.end())), encoded);
    }
    expectNoLine();
}

TEST_F(EncodeBase64, PutsALongTextOnOneLine) {
    const std::string encoded = encodeBase64(ByteVector(3000, 0xFF));
    EXPECT_EQ(encoded, std::string(4000, '/'));
}

TEST_F(EncodeBase64, AsksForTheLengthAndThenForTheTextWithoutLineBreaks) {
    int calls = 0;
    platformCalls().CryptBinaryToStringA = [&](const BYTE* data, DWORD length, DWORD flags,
                                               LPSTR text, DWORD* textLength) -> BOOL {
        EXPECT_EQ(length, 2U);
        EXPECT_EQ(data[1], 0xAB);
        EXPECT_EQ(flags, 0x40000001U);
        if (++calls == 1) {
            EXPECT_EQ(text, nullptr);
            *textLength = 5;
        } else {
            EXPECT_EQ(*textLength, 5U);
            std::memcpy(text, "abcd", 5);
            *textLength = 4;  // Now without the terminator, as the platform has it.
        }
        return TRUE;
    };
    EXPECT_EQ(encodeBase64({0x01, 0xAB}), "abcd");
    EXPECT_EQ(calls, 2);
}

TEST_F(EncodeBase64, ReportsALengthThatThePlatformDoesNotTell) {
    platformCalls().failCall("CryptBinaryToStringA", 1);
    EXPECT_EQ(encodeBase64({1}), "");
    EXPECT_EQ(
        log.output(),
        (LogLines{{"ERROR", "AdAttributeService: Failed to calculate base64 string length."}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(EncodeBase64, ReportsATextThatThePlatformDoesNotMake) {
    platformCalls().failCall("CryptBinaryToStringA", 2);
    EXPECT_EQ(encodeBase64({1}), "");
    EXPECT_EQ(
        log.output(),
        (LogLines{{"ERROR", "AdAttributeService: Failed to convert data to base64 string."}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(EncodeBase64, GivesAnEmptyTextForALengthOfZero) {
    platformCalls().CryptBinaryToStringA = [](const BYTE*, DWORD, DWORD, LPSTR,
                                              DWORD* length) -> BOOL {
        *length = 0;
        return TRUE;
    };
    EXPECT_EQ(encodeBase64({1}), "");
}

// Lets the registry hold this text, whatever is asked for.
void setRegistryText(const std::string& text) {
    platformCalls().RegGetValueW = [text](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID data,
                                          LPDWORD size) -> LSTATUS {
        const WideString wide = utf8ToWide(text);
        const DWORD needed = static_cast<DWORD>(wide.size() * sizeof(WCHAR));
        const bool enough = *size >= needed;
        *size = needed;
        if (!enough) return ERROR_MORE_DATA;
        std::memcpy(data, wide.data(), needed);
        return ERROR_SUCCESS;
    };
}

TEST_F(ReadServiceAddresses, CutsTheSettingAtItsSemicolons) {
    setRegistryText("https://a:443; http://b:80 ;;https://\xC3\xA4:1;");
    EXPECT_EQ(readServiceAddresses(),
              (Texts{"https://a:443", " http://b:80 ", "", "https://\xC3\xA4:1"}));
    expectNoLine();
}

TEST_F(ReadServiceAddresses, ReadsTheOneSetting) {
    int calls = 0;
    platformCalls().RegGetValueW = [&](HKEY root, LPCWSTR key, LPCWSTR value, DWORD, LPDWORD, PVOID,
                                       LPDWORD) -> LSTATUS {
        ++calls;
        EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
        EXPECT_EQ(WideString(key), WIDE_TEXT("SOFTWARE\\Kelmora\\KelmoraID\\"));
        EXPECT_EQ(WideString(value), WIDE_TEXT("ADRSURL"));
        return ERROR_FILE_NOT_FOUND;
    };
    EXPECT_EQ(readServiceAddresses(), Texts{});
    EXPECT_EQ(calls, 1);
    expectNoLine();
}

TEST_F(ReadServiceAddresses, GivesNoneForAnEmptySetting) {
    setRegistryText("");
    EXPECT_EQ(readServiceAddresses(), Texts{});
    expectNoLine();
}

TEST_F(ReadServiceAddresses, TakesAnExceptionForAMissingSetting) {
    platformCalls().RegGetValueW = [](auto...) -> LSTATUS { throw std::runtime_error("broken"); };
    EXPECT_EQ(readServiceAddresses(), Texts{});
    EXPECT_EQ(log.output(),
              (LogLines{{"ERROR",
                         "Could not read AD service address ('ADRSURL') from registry. Exception: "
                         "broken"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(LogVectorParts, TellsEachPartWithItsIndexWhenAskedFor) {
    logVectorParts({"a", ""}, true);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "Vector part '0'; value: 'a'."},
                                      {"DEBUG", "Vector part '1'; value: ''."}}));
    logVectorParts({"a", ""}, false);
    expectNoLine();
}

TEST_F(SendServiceRequest, PostsTheBodyToTheHostAndPort) {
    EXPECT_TRUE(sendServiceRequest("Post", "https://host:8443/ignored", "the body", false));
    ASSERT_EQ(service.exchanges.size(), 1U);
    EXPECT_EQ(service.exchanges[0].host, "host");
    EXPECT_EQ(service.exchanges[0].port, 8443);
    EXPECT_EQ(service.exchanges[0].flags, 0x00800000U);
    EXPECT_EQ(service.exchanges[0].body, "the body");
    expectNoLine();
}

TEST_F(SendServiceRequest, TellsTheWholeBodyOfUpTo100Characters) {
    const std::string body(100, 'b');
    EXPECT_TRUE(sendServiceRequest("Post", "http://host:80", body, true));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "AdAttributeService: Query (length 100): '" + body + "'."}}));
    EXPECT_TRUE(sendServiceRequest("Post", "http://host:80", "", true));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "AdAttributeService: Query (length 0): ''."}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(SendServiceRequest, CutsALongerBodyInTheLineOnly) {
    const std::string body(101, 'b');
    EXPECT_TRUE(sendServiceRequest("Post", "http://host:80", body, true));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "AdAttributeService: Query (length 101): '" +
                                                    std::string(100, 'b') + "...'."}}));
    EXPECT_EQ(service.exchanges[0].body, body);
}

TEST_F(SendServiceRequest, PostsForTheTypeGetWithoutABodyToo) {
    EXPECT_TRUE(sendServiceRequest("Get", "http://host:80", "", true));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "AdAttributeService: Query is empty."}}));
    ASSERT_EQ(service.exchanges.size(), 1U);
    EXPECT_EQ(service.exchanges[0].bodyLength, 0U);
    EXPECT_EQ(service.exchanges[0].totalLength, 0U);
}

TEST_F(SendServiceRequest, RefusesAnyOtherType) {
    for (const auto& [type, body] : {std::pair<std::string, std::string>{"Get", "body"},
                                     {"POST", "body"},
                                     {"", ""},
                                     {"get", ""}}) {
        EXPECT_FALSE(sendServiceRequest(type, "http://host:80", body, true));
        EXPECT_EQ(log.output(),
                  (LogLines{{"DEBUG", "AdAttributeService: Unknown HTTP request type: '" + type +
                                          "'. Return."}}));
        EXPECT_FALSE(sendServiceRequest(type, "http://host:80", body, false));
        expectNoLine();
    }
    expectNoNetwork();
}

TEST_F(SendServiceRequest, FilesAnAddressThatItCannotParse) {
    EXPECT_FALSE(sendServiceRequest("Post", "host", "", true));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "AdAttributeService: Query (length 0): ''."},
                                      {"DEBUG",
                                       "AdAttributeService: malformed URL: 'host'. "
                                       "Return."}}));
    EXPECT_EQ(log.file(), (LogLines{{"AdAttributeService", "Could not parse URL."}}));
    EXPECT_FALSE(sendServiceRequest("Post", "host", "", false));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), (LogLines{{"AdAttributeService", "Could not parse URL."}}));
    expectNoNetwork();
}

TEST_F(SendServiceRequest, LetsTheExceptionsOfThePortPass) {
    EXPECT_THROW(sendServiceRequest("Post", "http://host:port", "", false), std::invalid_argument);
    EXPECT_THROW(sendServiceRequest("Post", "http://host:99999999999", "", false),
                 std::out_of_range);
    expectNoLine();
    expectNoNetwork();
}

TEST_F(SendServiceRequest, TellsTheFailureOfTheExchange) {
    service.failing = {{"host", ScriptedService::unreachable}};
    EXPECT_FALSE(sendServiceRequest("Post", "http://host:80", "b", true));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "AdAttributeService: Query (length 1): 'b'."},
                        {"DEBUG", "AdAttributeService: WinHttpSendRequest error: '12029'."}}));
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
