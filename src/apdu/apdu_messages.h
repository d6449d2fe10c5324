// What a command object sends and is shown: the request, encoded when it is made, and the response
// (short form, ISO/IEC 7816-4).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "bytes/byte_vector.h"

namespace KelmoraID {

struct ApduRequest {
    BYTE CLA;
    BYTE INS;
    BYTE P1;
    BYTE P2;
    std::optional<BYTE> Lc;          ///< set at encoding when data is present
    std::optional<ByteVector> data;  ///< present and empty is not the same as absent
    std::optional<BYTE> Le;
    ByteVector bytes;  ///< the encoded command, made at construction

    /// Encodes the request. Present data is preceded by the low 8 bits of its size, so present and
    /// empty data writes a single byte 00. The size has no further check.
    ApduRequest(BYTE cla, BYTE ins, BYTE p1, BYTE p2, std::optional<ByteVector> data,
                std::optional<BYTE> Le);
};

struct ApduResponse {
    std::optional<ByteVector> data;  ///< the bytes before the status word; absent if there are none
    BYTE SW1;
    BYTE SW2;
    std::uint16_t Sw1Sw2;

    /// @param received  a whole reply of at least two bytes
    explicit ApduResponse(std::span<const BYTE> received);
};

}  // namespace KelmoraID
