#include "bytes/tlv_scan.h"

#include <optional>
#include <span>
#include <utility>

namespace KelmoraID {
namespace {

struct Element {
    BYTE tag;
    std::span<const BYTE> value;
    std::size_t size;  // of header and value
};

// The element at the front of the bytes; none at their end and at malformed bytes.
std::optional<Element> frontElement(std::span<const BYTE> bytes) {
    if (bytes.size() < 2) return std::nullopt;
    std::size_t header = 2;
    std::size_t length = bytes[1];
    if (length == 0x81) {
        header = 3;
        if (bytes.size() < header) return std::nullopt;
        length = bytes[2];
    } else if (length == 0x82) {
        header = 4;
        if (bytes.size() < header) return std::nullopt;
        length = static_cast<std::size_t>(bytes[2] << 8 | bytes[3]);
    } else if (length >= 0x80) {
        return std::nullopt;
    }
    if (bytes.size() - header < length) return std::nullopt;
    return Element{bytes[0], bytes.subspan(header, length), header + length};
}

}  // namespace

bool readNextElement(ByteVector& buffer, BYTE& tag, ByteVector& value) {
    const auto element = frontElement(buffer);
    if (!element) return false;
    tag = element->tag;
    ByteVector copy(element->value.begin(), element->value.end());
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(element->size));
    value = std::move(copy);
    return true;
}

bool findElement(ByteVector data, BYTE tag, ByteVector& value, int occurrence) {
    std::span<const BYTE> rest(data);
    int count = 0;
    while (const auto element = frontElement(rest)) {
        if (element->tag == tag && ++count == occurrence) {
            value.assign(element->value.begin(), element->value.end());
            return true;
        }
        rest = rest.subspan(element->size);
    }
    value.clear();
    return false;
}

}  // namespace KelmoraID
