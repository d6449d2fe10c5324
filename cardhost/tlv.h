// BER-TLV data objects (ISO/IEC 7816-4, 5.2.2; X.690), read from the front of bytes that may be cut
// or make no sense.
#pragma once

#include <optional>

#include "bytes.h"

namespace cardhost {

struct TlvElement {
    std::uint32_t tag = 0;   // all bytes of the tag: 0x30, 0x7F41
    std::size_t header = 0;  // length of tag and length
    ByteView value;          // of an element that was cut, what is there of it
    bool isWhole = false;

    bool isConstructed() const;
    std::size_t size() const { return header + value.size(); }
};

/// The first element, or nothing where there is none.
std::optional<TlvElement> readTlv(ByteView bytes);

/// Whether the bytes are elements, one behind the other, and nothing else.
bool isTlv(ByteView bytes);

}  // namespace cardhost
