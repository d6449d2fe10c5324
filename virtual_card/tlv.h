// BER-TLV data objects with one-byte tags (ISO/IEC 8825-1), to write the card's files and to read
// the templates in its commands.
#pragma once

#include <initializer_list>
#include <optional>
#include <string_view>

#include "virtual_card/bytes.h"

namespace virtual_card {

/// One element: the tag, the length in its shortest form, the value.
Bytes tlv(std::uint8_t tag, ByteView value);
/// One element whose value is the given parts, one behind the other.
Bytes tlv(std::uint8_t tag, std::initializer_list<Bytes> parts);
/// One element whose value is a text.
Bytes tlvText(std::uint8_t tag, std::string_view text);
/// An INTEGER's value bytes under a tag, with the sign byte that DER asks for.
Bytes tlvNumber(std::uint8_t tag, unsigned number);

/// One element that was read.
struct TlvElement {
    std::uint8_t tag;
    Bytes value;
};

/// All elements of a byte string, one level deep. No value when the bytes are not such elements.
std::optional<std::vector<TlvElement>> parseTlvs(ByteView bytes);

}  // namespace virtual_card
