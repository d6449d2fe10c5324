#include "pairing/service_client.h"

#include <fmt/format.h>

#include <cstdint>
#include <exception>

#include "pairing/service_exchange.h"
#include "pairing/service_log.h"
#include "pairing/service_url.h"
#include "registry/registry.h"
#include "text/text_conversion.h"
#include "text/text_lists.h"

namespace KelmoraID {
namespace {

// Whether the type is known; it has no further effect.
bool acceptRequestType(const std::string& type, const std::string& body, bool debug) {
    static constexpr std::size_t mostShown = 100;
    if (type == "Get" && body.empty()) {
        logDebugIf(debug, "AdAttributeService: Query is empty.");
        return true;
    }
    if (type == "Post") {
        logDebugIf(debug,
                   fmt::format("AdAttributeService: Query (length {}): '{}{}'.", body.size(),
                               body.substr(0, mostShown), body.size() > mostShown ? "..." : ""));
        return true;
    }
    logDebugIf(debug,
               fmt::format("AdAttributeService: Unknown HTTP request type: '{}'. Return.", type));
    return false;
}

}  // namespace

std::string encodeBase64(const ByteVector& bytes) {
    const auto encode = [&](char* text, DWORD& length) {
        return CryptBinaryToStringA(bytes.data(), static_cast<DWORD>(bytes.size()),
                                    CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, text, &length);
    };
    DWORD length = 0;
    if (!encode(nullptr, length)) {
        logError("AdAttributeService: Failed to calculate base64 string length.");
        return {};
    }
    std::string text(length, '\0');
    if (!encode(text.data(), length)) {
        logError("AdAttributeService: Failed to convert data to base64 string.");
        return {};
    }
    if (!text.empty()) text.pop_back();  // The terminator.
    return text;
}

std::vector<std::string> readServiceAddresses() {
    WideString value;
    try {
        value = readRegistryString(WideString(serviceAddressKey), utf8ToWide(serviceAddressValue));
    } catch (const std::exception& exception) {
        logError(
            fmt::format("Could not read AD service address ('{}') from registry. Exception: {}",
                        serviceAddressValue, exception.what()));
    }
    if (value.empty()) return {};
    return splitString(wideToUtf8(value).c_str(), ';');
}

bool sendServiceRequest(const std::string& type, const std::string& url, const std::string& body,
                        bool debug) {
    if (!acceptRequestType(type, body, debug)) return false;
    ServiceScheme scheme{};
    WideString host;
    std::uint16_t port = 0;
    if (!parseServiceUrl(url, scheme, host, port, debug)) {
        logToFile(serviceLogScope, "Could not parse URL.");
        return false;
    }
    return postToService(scheme, host, port, body, debug);
}

void logVectorParts(const std::vector<std::string>& parts, bool debug) {
    for (std::size_t i = 0; i < parts.size(); ++i) {
        logDebugIf(debug, fmt::format("Vector part '{}'; value: '{}'.", i, parts[i]));
    }
}

}  // namespace KelmoraID
