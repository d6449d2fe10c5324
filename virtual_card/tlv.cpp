#include "virtual_card/tlv.h"

#include <stdexcept>

namespace virtual_card {

Bytes tlv(std::uint8_t tag, ByteView value) {
    Bytes bytes{tag};
    if (value.size() > 0xFFFF) throw std::length_error("an element of more than 65535 bytes");
    if (value.size() > 0xFF) {
        bytes.push_back(0x82);
        bytes.push_back(static_cast<std::uint8_t>(value.size() >> 8));
    } else if (value.size() > 0x7F) {
        bytes.push_back(0x81);
    }
    bytes.push_back(static_cast<std::uint8_t>(value.size() & 0xFF));
    append(bytes, value);
    return bytes;
}

Bytes tlv(std::uint8_t tag, std::initializer_list<Bytes> parts) {
    Bytes value;
    for (const Bytes& part : parts) append(value, part);
    return tlv(tag, value);
}

Bytes tlvText(std::uint8_t tag, std::string_view text) {
    return tlv(tag, Bytes(text.begin(), text.end()));
}

Bytes tlvNumber(std::uint8_t tag, unsigned number) {
    Bytes value;
    do {
        value.insert(value.begin(), static_cast<std::uint8_t>(number & 0xFF));
        number >>= 8;
    } while (number != 0);
    if (value.front() >= 0x80) value.insert(value.begin(), 0x00);
    return tlv(tag, value);
}

std::optional<std::vector<TlvElement>> parseTlvs(ByteView bytes) {
    std::vector<TlvElement> elements;
    while (!bytes.empty()) {
        if (bytes.size() < 2) return std::nullopt;
        std::size_t header = 2;
        std::size_t length = bytes[1];
        if (length == 0x81 && bytes.size() >= 3) {
            header = 3;
            length = bytes[2];
        } else if (length >= 0x80) {
            return std::nullopt;
        }
        if (bytes.size() - header < length) return std::nullopt;
        ByteView value = bytes.subspan(header, length);
        elements.push_back({bytes[0], Bytes(value.begin(), value.end())});
        bytes = bytes.subspan(header + length);
    }
    return elements;
}

}  // namespace virtual_card
