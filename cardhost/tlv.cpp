#include "tlv.h"

#include <algorithm>

namespace cardhost {

namespace {

constexpr std::size_t longestTag = 3;
constexpr std::size_t longestLength = 3;

}  // namespace

bool TlvElement::isConstructed() const {
    std::uint32_t first = tag;
    while (first > 0xFF) first >>= 8;
    return (first & 0x20) != 0;
}

std::optional<TlvElement> readTlv(ByteView bytes) {
    if (bytes.size() < 2 || bytes[0] == 0x00 || bytes[0] == 0xFF) return std::nullopt;
    TlvElement element;
    element.tag = bytes[0];
    std::size_t at = 1;
    if ((bytes[0] & 0x1F) == 0x1F) {
        do {
            if (at == longestTag || at == bytes.size()) return std::nullopt;
            element.tag = element.tag << 8 | bytes[at];
        } while ((bytes[at++] & 0x80) != 0);
    }
    if (at == bytes.size()) return std::nullopt;
    std::size_t length = bytes[at++];
    if (length >= 0x80) {
        const std::size_t count = length - 0x80;
        if (count == 0 || count > longestLength || bytes.size() - at < count) return std::nullopt;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) length = length << 8 | bytes[at++];
    }
    element.header = at;
    element.isWhole = bytes.size() - at >= length;
    element.value = bytes.subspan(at, std::min(length, bytes.size() - at));
    return element;
}

bool isTlv(ByteView bytes) {
    if (bytes.empty()) return false;
    while (!bytes.empty()) {
        const auto element = readTlv(bytes);
        if (!element || !element->isWhole) return false;
        bytes = bytes.subspan(element->size());
    }
    return true;
}

}  // namespace cardhost
