// The FINEID file system: its applications, and the files with a fixed path (FINEID S1 and ISO/IEC
// 7816-15).
#pragma once

#include <array>
#include <cstddef>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// The bytes of a file identifier; a path is a row of them (ISO/IEC 7816-4, 7.3).
inline constexpr std::size_t identifierLength = 2;
/// The application identifier tried first; the last 7 bytes are the text "PKCS-15".
inline constexpr std::array<BYTE, 12> FineidAid{0xA0, 0x00, 0x00, 0x00, 0x63, 0x50,
                                                0x4B, 0x43, 0x53, 0x2D, 0x31, 0x35};
/// The application identifier of the Cosmo X chip, tried second.
inline constexpr std::array<BYTE, 16> CosmoXAid{0xA0, 0x00, 0x00, 0x00, 0x77, 0x03, 0x0C, 0x60,
                                                0x00, 0x00, 0x00, 0xFE, 0x00, 0x00, 0x05, 0x00};
/// The object directory file.
inline constexpr std::array<BYTE, 4> OdfPath{0x3F, 0x00, 0x50, 0x31};
/// EF.CIAInfo.
inline constexpr std::array<BYTE, 4> CiaInfoPath{0x3F, 0x00, 0x50, 0x32};

}  // namespace KelmoraID
