#include "pairing/service_url.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "support/log_capture.h"
#include "support/platform_calls.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;

struct Parsed {
    bool accepted;
    ServiceScheme scheme{};
    WideString host;
    std::uint16_t port = 0;
};

Parsed parse(const std::string& url, bool debug = true) {
    Parsed parsed{};
    parsed.accepted = parseServiceUrl(url, parsed.scheme, parsed.host, parsed.port, debug);
    return parsed;
}

void expectAccepted(const std::string& url, std::uint32_t scheme, const WideString& host,
                    std::uint16_t port) {
    SCOPED_TRACE(url);
    LogCapture log;
    const Parsed parsed = parse(url);
    EXPECT_TRUE(parsed.accepted);
    EXPECT_EQ(static_cast<std::uint32_t>(parsed.scheme), scheme);
    EXPECT_EQ(WideString(parsed.host.c_str()), host);
    EXPECT_EQ(parsed.port, port);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

void expectRefused(const std::string& url, const std::string& line) {
    SCOPED_TRACE(url);
    LogCapture log;
    const Parsed parsed = parse(url);
    EXPECT_FALSE(parsed.accepted);
    EXPECT_EQ(parsed.port, 0);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", line}}));
    EXPECT_FALSE(parse(url, false).accepted);
    EXPECT_EQ(log.output(), LogLines{}) << "the line is written when asked for only";
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(ParseServiceUrl, TakesSchemeHostAndPort) {
    expectAccepted("https://host:443", 2, WIDE_TEXT("host"), 443);
    expectAccepted("http://127.0.0.1:8080", 1, WIDE_TEXT("127.0.0.1"), 8080);
    expectAccepted("http://h:1", 1, WIDE_TEXT("h"), 1);
    expectAccepted("http://host:65535", 1, WIDE_TEXT("host"), 65535);
}

TEST(ParseServiceUrl, TakesWhateverStandsBehindTheSlashesForTheHost) {
    expectAccepted("http:///host/path:80", 1, WIDE_TEXT("/host/path"), 80);
    expectAccepted("http://\xC3\xA4.fi:80", 1, WIDE_TEXT("\u00E4.fi"), 80);
}

TEST(ParseServiceUrl, DropsWhatStandsBehindThePort) {
    expectAccepted("http://host:8080/some/path", 1, WIDE_TEXT("host"), 8080);
    expectAccepted("https://host:443/x", 2, WIDE_TEXT("host"), 443);
    expectAccepted("https://host:443:", 2, WIDE_TEXT("host"), 443);
}

TEST(ParseServiceUrl, TakesBlanksAndASignAheadOfThePort) {
    expectAccepted("http://host: 80", 1, WIDE_TEXT("host"), 80);
    expectAccepted("http://host:\t+80", 1, WIDE_TEXT("host"), 80);
}

TEST(ParseServiceUrl, RefusesOtherThanThreeParts) {
    for (const std::string url : {"", "https", "https://host", "https://host:",
                                  "https://host:443:1", "https://[::1]:443", "host"}) {
        expectRefused(url, "AdAttributeService: malformed URL: '" + url + "'. Return.");
    }
}

TEST(ParseServiceUrl, RefusesAnyOtherScheme) {
    for (const std::string scheme : {"HTTPS", "Http", "ftp", "", " http", "https "}) {
        const std::string url = scheme + "://host:443";
        expectRefused(url, "AdAttributeService: unsupported/invalid scheme '" + scheme +
                               "' in URL: '" + url + "'. Return.");
    }
}

TEST(ParseServiceUrl, RefusesAHostWithoutSlashesOrWithoutACharacterBehindThem) {
    for (const std::string host : {"host", "//", "", "/", "/host", "h//"}) {
        const std::string url = "https:" + host + ":443";
        expectRefused(url, "AdAttributeService: invalid host address '" + host + "' in URL: '" +
                               url + "'. Return.");
    }
}

TEST(ParseServiceUrl, RefusesAHostThatThePlatformCannotConvert) {
    PlatformCallsGuard guard;
    platformCalls().MultiByteToWideChar = [](auto...) { return 0; };
    expectRefused("https://host:443",
                  "AdAttributeService: host address was invalid: 'host'. Return.");
}

TEST(ParseServiceUrl, RefusesAPortOutsideItsRange) {
    for (const std::string port : {"0", "65536", "-1", "-65535", "2147483647"}) {
        const std::string url = "http://host:" + port;
        expectRefused(
            url, "AdAttributeService: invalid port '" + port + "' in URL: '" + url + "'. Return.");
    }
}

TEST(ParseServiceUrl, ThrowsWhenThePortIsNoNumber) {
    LogCapture log;
    EXPECT_THROW(parse("http://host:abc"), std::invalid_argument);
    EXPECT_THROW(parse("http://host:/443"), std::invalid_argument);
    EXPECT_THROW(parse("http://host: "), std::invalid_argument);
    EXPECT_THROW(parse("http://host:99999999999"), std::out_of_range);
    EXPECT_THROW(parse("http://host:2147483648"), std::out_of_range);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
