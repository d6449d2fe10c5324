#include "pairing/service_url.h"

#include <fmt/format.h>

#include <limits>
#include <vector>

#include "pairing/service_log.h"
#include "text/text_conversion.h"
#include "text/text_lists.h"

namespace KelmoraID {

bool parseServiceUrl(const std::string& url, ServiceScheme& scheme, WideString& host,
                     std::uint16_t& port, bool debug) {
    const std::vector<std::string> parts = splitString(url, ':');
    if (parts.size() != 3) {
        logDebugIf(debug, fmt::format("AdAttributeService: malformed URL: '{}'. Return.", url));
        return false;
    }
    const std::string& schemeText = parts[0];
    const std::string& hostText = parts[1];
    const std::string& portText = parts[2];

    if (schemeText == "http") {
        scheme = ServiceScheme::http;
    } else if (schemeText == "https") {
        scheme = ServiceScheme::https;
    } else {
        logDebugIf(
            debug,
            fmt::format("AdAttributeService: unsupported/invalid scheme '{}' in URL: '{}'. Return.",
                        schemeText, url));
        return false;
    }

    if (hostText.size() < 3 || !hostText.starts_with("//")) {
        logDebugIf(debug, fmt::format(
                              "AdAttributeService: invalid host address '{}' in URL: '{}'. Return.",
                              hostText, url));
        return false;
    }
    const std::string hostName = hostText.substr(2);
    host = utf8ToWide(hostName);
    if (host.empty()) {
        logDebugIf(debug, fmt::format("AdAttributeService: host address was invalid: '{}'. Return.",
                                      hostName));
        return false;
    }

    // quirk: port-without-number. It throws, and nobody on the way to the boundary catches it.
    const int number = std::stoi(portText);
    if (number < 1 || number > std::numeric_limits<std::uint16_t>::max()) {
        logDebugIf(debug, fmt::format("AdAttributeService: invalid port '{}' in URL: '{}'. Return.",
                                      portText, url));
        return false;
    }
    port = static_cast<std::uint16_t>(number);
    return true;
}

}  // namespace KelmoraID
