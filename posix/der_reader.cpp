#include "posix/der_reader.h"

#include <chrono>

namespace KelmoraID::platform {

DerElement DerReader::next() {
    if (rest_.size() < 2) throw DerError{CRYPT_E_ASN1_EOD};
    const std::uint8_t tag = rest_[0];
    if ((tag & 0x1F) == 0x1F) throw DerError{CRYPT_E_ASN1_BADTAG};
    std::size_t header = 2;
    std::size_t length = rest_[1];
    if (length == 0x80) throw DerError{CRYPT_E_ASN1_CORRUPT};
    if (length > 0x80) {
        const std::size_t octets = length & 0x7F;
        if (octets > 4) throw DerError{CRYPT_E_ASN1_LARGE};
        if (rest_.size() < header + octets) throw DerError{CRYPT_E_ASN1_EOD};
        length = 0;
        for (std::size_t i = 0; i < octets; ++i) length = length << 8 | rest_[header + i];
        header += octets;
    }
    if (length > rest_.size() - header) throw DerError{CRYPT_E_ASN1_EOD};
    const DerElement element{tag, rest_.subspan(header, length), rest_.first(header + length)};
    rest_ = rest_.subspan(header + length);
    return element;
}

DerElement DerReader::next(std::uint8_t tag) {
    if (!rest_.empty() && rest_[0] != tag) throw DerError{CRYPT_E_ASN1_BADTAG};
    return next();
}

std::optional<DerElement> DerReader::nextIf(std::uint8_t tag) {
    if (rest_.empty() || rest_[0] != tag) return std::nullopt;
    return next();
}

void DerReader::end() const {
    if (!rest_.empty()) throw DerError{CRYPT_E_ASN1_CORRUPT};
}

std::string dottedIdentifier(std::span<const BYTE> content) {
    std::string text;
    std::uint64_t component = 0;
    bool within = false;
    for (const BYTE byte : content) {
        if (!within && byte == 0x80) throw DerError{CRYPT_E_ASN1_CORRUPT};
        component = component << 7 | (byte & 0x7FU);
        if (component > 0xFFFFFFFF) throw DerError{CRYPT_E_ASN1_LARGE};
        within = (byte & 0x80) != 0;
        if (within) continue;
        if (text.empty()) {
            // The first number holds the first two components (X.690, 8.19.4).
            const std::uint64_t root = component < 80 ? component / 40 : 2;
            text = std::to_string(root) + '.' + std::to_string(component - 40 * root);
        } else {
            text += '.' + std::to_string(component);
        }
        component = 0;
    }
    if (text.empty() || within) throw DerError{CRYPT_E_ASN1_CORRUPT};
    return text;
}

FILETIME fileTimeOf(const DerElement& element) {
    const bool utc = element.tag == Tag::utcTime;
    if (!utc && element.tag != Tag::generalizedTime) throw DerError{CRYPT_E_ASN1_BADTAG};
    const std::span<const BYTE> text = element.content;
    const std::size_t yearDigits = utc ? 2 : 4;
    if (text.size() != yearDigits + 11 || text.back() != 'Z') throw DerError{CRYPT_E_ASN1_CORRUPT};
    const auto number = [&text](std::size_t from, std::size_t digits) {
        unsigned value = 0;
        for (const BYTE byte : text.subspan(from, digits)) {
            if (byte < '0' || byte > '9') throw DerError{CRYPT_E_ASN1_CORRUPT};
            value = value * 10 + (byte - '0');
        }
        return value;
    };
    auto year = static_cast<int>(number(0, yearDigits));
    if (utc) year += year < 50 ? 2000 : 1900;
    const auto two = [&](std::size_t field) { return number(yearDigits + 2 * field, 2); };
    const std::chrono::year_month_day day{std::chrono::year(year), std::chrono::month(two(0)),
                                          std::chrono::day(two(1))};
    const unsigned hour = two(2);
    const unsigned minute = two(3);
    const unsigned second = two(4);
    if (!day.ok() || year < 1601 || hour > 23 || minute > 59 || second > 59) {
        throw DerError{CRYPT_E_ASN1_CORRUPT};
    }
    constexpr std::chrono::sys_days epoch =
        std::chrono::year(1601) / std::chrono::January / std::chrono::day(1);
    const auto days = static_cast<std::uint64_t>((std::chrono::sys_days(day) - epoch).count());
    const std::uint64_t seconds = days * 86400 + hour * 3600 + minute * 60 + second;
    const std::uint64_t ticks = seconds * 10'000'000;
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

}  // namespace KelmoraID::platform
