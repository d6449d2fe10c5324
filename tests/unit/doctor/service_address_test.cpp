// The doctor reads an address as the driver does: both are asked, over rows and over all short
// texts.
#include "doctor/service_address.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "bytes.h"
#include "pairing/service_url.h"

namespace cardhost::doctor {
namespace {

using Form = ServiceAddress::Form;

struct Row {
    const char* text;
    Form form;
    const char* host;
    std::uint16_t port;
    const char* ignored;
};

constexpr Row rows[] = {
    {"https://host:443", Form::usable, "host", 443, ""},
    {"http://127.0.0.1:8080", Form::usable, "127.0.0.1", 8080, ""},
    {"http://h:1", Form::usable, "h", 1, ""},
    {"http://host:65535", Form::usable, "host", 65535, ""},
    {"http://host:8080/some/path", Form::usable, "host", 8080, "/some/path"},
    {"https://host: +443 ", Form::usable, "host", 443, " "},
    {"https://host:443:", Form::usable, "host", 443, ""},
    {"https:// :443", Form::usable, " ", 443, ""},
    {"https://user@host:443", Form::usable, "user@host", 443, ""},
    {"https:///:443", Form::usable, "/", 443, ""},
    {"", Form::notThreeParts, "", 0, ""},
    {"https://host", Form::notThreeParts, "", 0, ""},
    {"https://host:", Form::notThreeParts, "", 0, ""},
    {"https://host:443:1", Form::notThreeParts, "", 0, ""},
    {"https://[::1]:443", Form::notThreeParts, "", 0, ""},
    {"host:443", Form::notThreeParts, "", 0, ""},
    {"HTTPS://host:443", Form::unknownScheme, "", 0, ""},
    {"ftp://host:21", Form::unknownScheme, "", 0, ""},
    {"://host:21", Form::unknownScheme, "", 0, ""},
    {"https:host:443", Form::noHost, "", 0, ""},
    {"https://:443", Form::noHost, "", 0, ""},
    {"https:/host:443", Form::noHost, "", 0, ""},
    {"https://host:0", Form::portOutOfRange, "host", 0, ""},
    {"https://host:-1", Form::portOutOfRange, "host", 0, ""},
    {"https://host:65536", Form::portOutOfRange, "host", 0, ""},
    {"https://host:0x1BB", Form::portOutOfRange, "host", 0, "x1BB"},
    {"https://host:x", Form::portIsNoNumber, "host", 0, ""},
    {"https://host: ", Form::portIsNoNumber, "host", 0, ""},
    {"https://host:99999999999", Form::portIsNoNumber, "host", 0, ""},
};

/// What the driver makes of it, in the same words.
ServiceAddress driversReading(const std::string& text) {
    ServiceAddress address;
    KelmoraID::ServiceScheme scheme{};
    WideString host;
    try {
        if (!KelmoraID::parseServiceUrl(text, scheme, host, address.port, false)) return address;
    } catch (const std::logic_error&) {
        address.form = Form::portIsNoNumber;
        return address;
    }
    address.form = Form::usable;
    address.isSecure = scheme == KelmoraID::ServiceScheme::https;
    address.host = utf8(host);
    return address;
}

void expectDriversReading(const std::string& text) {
    SCOPED_TRACE(text);
    const ServiceAddress ours = parseServiceAddress(text);
    const ServiceAddress drivers = driversReading(text);
    EXPECT_EQ(ours.form == Form::usable, drivers.form == Form::usable);
    EXPECT_EQ(ours.form == Form::portIsNoNumber, drivers.form == Form::portIsNoNumber);
    if (drivers.form != Form::usable) return;
    EXPECT_EQ(ours.isSecure, drivers.isSecure);
    EXPECT_EQ(ours.host, drivers.host);
    EXPECT_EQ(ours.port, drivers.port);
}

TEST(ServiceAddress, IsReadAsTheDriverReadsIt) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const ServiceAddress address = parseServiceAddress(row.text);
        EXPECT_EQ(address.form, row.form);
        EXPECT_EQ(address.port, row.port);
        EXPECT_EQ(address.ignored, row.ignored);
        if (row.form == Form::usable) EXPECT_EQ(address.host, row.host);
        expectDriversReading(row.text);
    }
}

TEST(ServiceAddress, IsReadAsTheDriverReadsItWhateverItsPieces) {
    const std::vector<std::string> pieces = {"http",  "https", ":", "//", "/", "h", "1",
                                             "70000", " ",     "+", "-",  ";", "\t"};
    const std::size_t count = pieces.size();
    for (std::size_t a = 0; a < count; ++a) {
        for (std::size_t b = 0; b < count; ++b) {
            for (std::size_t c = 0; c < count; ++c) {
                expectDriversReading(pieces[a] + "://h" + pieces[b] + pieces[c]);
                expectDriversReading("http://" + pieces[a] + ":" + pieces[b] + pieces[c]);
                expectDriversReading(pieces[a] + pieces[b] + pieces[c] + ":1");
            }
        }
    }
}

TEST(ServiceAddresses, AreTheDriversParts) {
    const auto addresses = parseServiceAddresses(" https://a:1 ;; http://b:2;\t;x; ");
    std::vector<std::string> texts;
    for (const ServiceAddress& address : addresses) texts.push_back(address.text);
    EXPECT_THAT(texts, ::testing::ElementsAre("https://a:1", "http://b:2", "x"));
    EXPECT_TRUE(parseServiceAddresses("").empty());
    EXPECT_EQ(parseServiceAddresses(std::string("http://a:1\0;http://b:2", 22)).size(), 1U);
}

}  // namespace
}  // namespace cardhost::doctor
