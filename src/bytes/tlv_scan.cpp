#include "bytes/tlv_scan.h"

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

std::optional<std::span<const BYTE>> findValue(std::span<const BYTE> data, BYTE tag,
                                               int occurrence) {
    int count = 0;
    while (const auto element = frontElement(data)) {
        if (element->tag == tag && ++count == occurrence) return element->value;
        data = data.subspan(element->size);
    }
    return std::nullopt;
}

bool findElement(std::span<const BYTE> data, BYTE tag, ByteVector& value, int occurrence) {
    const auto found = findValue(data, tag, occurrence);
    value = found ? ByteVector(found->begin(), found->end()) : ByteVector();
    return found.has_value();
}

}  // namespace KelmoraID
