// Reading DER (ITU-T X.690) without copying: one element after the other out of bytes that nobody
// vouches for. Definite lengths only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/win32.h"

namespace KelmoraID::platform {

namespace Tag {
inline constexpr std::uint8_t boolean = 0x01;
inline constexpr std::uint8_t integer = 0x02;
inline constexpr std::uint8_t bitString = 0x03;
inline constexpr std::uint8_t octetString = 0x04;
inline constexpr std::uint8_t objectIdentifier = 0x06;
inline constexpr std::uint8_t utcTime = 0x17;
inline constexpr std::uint8_t generalizedTime = 0x18;
inline constexpr std::uint8_t sequence = 0x30;
}  // namespace Tag

/// What is wrong with the bytes: a CRYPT_E_ASN1 code as CryptoAPI reports it.
struct DerError {
    DWORD code;
};
inline constexpr DWORD CRYPT_E_ASN1_EOD = 0x80093102;      ///< the bytes end too early
inline constexpr DWORD CRYPT_E_ASN1_CORRUPT = 0x80093103;  ///< a content that cannot be
inline constexpr DWORD CRYPT_E_ASN1_LARGE = 0x80093104;    ///< more than there is room for
inline constexpr DWORD CRYPT_E_ASN1_BADTAG = 0x8009310B;   ///< another element was due

struct DerElement {
    std::uint8_t tag;
    std::span<const BYTE> content;
    std::span<const BYTE> whole;  ///< tag, length and content
};

/// Walks over the elements of its bytes. Every function throws DerError.
class DerReader {
public:
    explicit DerReader(std::span<const BYTE> bytes) : rest_(bytes) {}

    bool atEnd() const { return rest_.empty(); }
    /// The next element, whatever it is. Tags of more than one byte are refused.
    DerElement next();
    /// The next element, which must have that tag.
    DerElement next(std::uint8_t tag);
    /// The next element if it has that tag.
    std::optional<DerElement> nextIf(std::uint8_t tag);
    /// Refuses what is left over.
    void end() const;

private:
    std::span<const BYTE> rest_;
};

/// An object identifier's content in dotted form. Each component fits in 32 bits.
std::string dottedIdentifier(std::span<const BYTE> content);

/// A UTCTime or GeneralizedTime of RFC 5280, section 4.1.2.5 (seconds and "Z"), as the platform's
/// count of 100 ns since 1601.
FILETIME fileTimeOf(const DerElement& element);

}  // namespace KelmoraID::platform
