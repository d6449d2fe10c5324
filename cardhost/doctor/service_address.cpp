#include "doctor/service_address.h"

#include <limits>
#include <stdexcept>

namespace cardhost::doctor {

namespace {

constexpr const char* blanks = " \t\n\v\f\r";

/// The parts between delimiters; an empty one at the end does not count.
std::vector<std::string> partsOf(std::string_view text, char delimiter) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = text.find(delimiter);
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return parts;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

ServiceAddress parseServiceAddress(const std::string& text) {
    using Form = ServiceAddress::Form;
    ServiceAddress address;
    address.text = text;
    const auto parts = partsOf(text, ':');
    const auto refused = [&](Form form) {
        address.form = form;
        return address;
    };
    if (parts.size() != 3) return refused(Form::notThreeParts);
    if (parts[0] != "http" && parts[0] != "https") return refused(Form::unknownScheme);
    address.isSecure = parts[0] == "https";
    if (parts[1].size() < 3 || !parts[1].starts_with("//")) return refused(Form::noHost);
    address.host = parts[1].substr(2);
    int port = 0;
    try {
        std::size_t length = 0;
        port = std::stoi(parts[2], &length);
        address.ignored = parts[2].substr(length);
    } catch (const std::logic_error&) {
        return refused(Form::portIsNoNumber);
    }
    if (port < 1 || port > std::numeric_limits<std::uint16_t>::max()) {
        return refused(Form::portOutOfRange);
    }
    address.port = static_cast<std::uint16_t>(port);
    return refused(Form::usable);
}

std::vector<ServiceAddress> parseServiceAddresses(const std::string& setting) {
    std::vector<ServiceAddress> addresses;
    for (const std::string& part : partsOf(setting.substr(0, setting.find('\0')), ';')) {
        const std::string text = trimmed(part);
        if (!text.empty()) addresses.push_back(parseServiceAddress(text));
    }
    return addresses;
}

}  // namespace cardhost::doctor
