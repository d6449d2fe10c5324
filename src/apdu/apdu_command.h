// A command record: plain fields in, short-form ISO/IEC 7816-4 bytes out. Files are read and
// signatures made this way; the other way to a card are command objects (apdu.h).
#pragma once

#include <optional>

#include "bytes/byte_vector.h"

namespace KelmoraID {

inline constexpr std::size_t SINGLE_APDU_DATAFIELD_MAX_SIZE = 256;

struct ApduCommand {
    BYTE CLA = 0;
    BYTE INS = 0;
    BYTE P1 = 0;
    BYTE P2 = 0;
    BYTE Lc = 0;  ///< as set by the factory; encoding does not read it
    ByteVector data;
    std::optional<BYTE> Le;  ///< a present 0 is sent as a byte 00

    /// The bytes of the command: header, Lc and data if there are 1 to 255 bytes of it, Le if
    /// present. Data of 256 bytes or more is left out; above 256 a line goes to the ERROR channel.
    ByteVector encode() const;
};

}  // namespace KelmoraID
