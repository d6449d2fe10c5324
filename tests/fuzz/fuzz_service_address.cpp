// The directory services' addresses: the URL's one form, and the list of them.
#include <stdexcept>

#include "fuzz_target.h"
#include "pairing/service_url.h"
#include "text/text_lists.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string list(data, data + size);
    for (const std::string& url : KelmoraID::splitString(list, ';')) {
        fuzz::require(url.find(';') == std::string::npos, "an address has no semicolon");
        auto scheme = KelmoraID::ServiceScheme{};
        WideString host;
        std::uint16_t port = 0;
        try {
            if (KelmoraID::parseServiceUrl(url, scheme, host, port, true)) {
                fuzz::require(port != 0, "a port is not 0");
                fuzz::require(!host.empty() && host.back() == 0, "a host has its terminator");
                fuzz::require(url.starts_with("http"), "a scheme is http or https");
            } else {
                fuzz::require(port == 0, "a port is written on success only");
            }
        } catch (const std::invalid_argument&) {  // As documented, when the port is no number.
        } catch (const std::out_of_range&) {
        }
    }
    return 0;
}
