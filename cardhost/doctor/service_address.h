// The addresses of directory services in the setting ADRSURL, taken apart exactly as the driver
// takes them. The driver says only yes or no, and cardhost shares no code with what it examines: so
// this is its own reading of the form, with the reason of a refusal, and a test compares both.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cardhost::doctor {

struct ServiceAddress {
    enum class Form {
        usable,
        notThreeParts,   // no "scheme://host:port"
        unknownScheme,   // neither http nor https, in lower case
        noHost,          // "//" and one character at least
        portOutOfRange,  // 1 to 65535
        portIsNoNumber,  // stops the driver's acquisition
    };
    std::string text;  // as configured, without blanks around it
    Form form = Form::notThreeParts;
    bool isSecure = false;
    std::string host;
    std::uint16_t port = 0;
    std::string ignored;  // what stands behind the port's digits
};

/// One address, without blanks around it.
ServiceAddress parseServiceAddress(const std::string& text);

/// The addresses of the setting in the order in which the driver tries them.
std::vector<ServiceAddress> parseServiceAddresses(const std::string& setting);

}  // namespace cardhost::doctor
