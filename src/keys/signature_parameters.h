// How the platform describes a signature, turned into what the card takes: the hash nibble and the
// scheme nibble of the algorithm reference.
#pragma once

#include <optional>

#include "platform/wide_text.h"

namespace KelmoraID {

inline constexpr BYTE hashNibbleSha1 = 0x10;
inline constexpr BYTE hashNibbleSha224 = 0x30;
inline constexpr BYTE hashNibbleSha256 = 0x40;
inline constexpr BYTE hashNibbleSha384 = 0x50;
inline constexpr BYTE hashNibbleSha512 = 0x60;

inline constexpr BYTE schemeNibblePkcs1 = 0x02;
inline constexpr BYTE schemeNibbleEcdsa = 0x04;
inline constexpr BYTE schemeNibblePss = 0x05;

/// What is thought of a hash by its name. The broken hashes are called invalid and all unknown
/// names unrecommended; meant so.
enum class HashVerdict { accepted, invalid, unrecommended };

struct HashByName {
    HashVerdict verdict;
    BYTE nibble;  ///< of an accepted hash
};

/// The hash by the name in padding information, compared exactly.
/// @param name  NULL stands for "SSL3_SHAMD5"
HashByName hashByName(LPCWSTR name);

/// The hash nibble by the platform's algorithm identifier; no value if it is refused.
std::optional<BYTE> hashByAlgorithmId(ALG_ID algorithm);

/// The hash nibble by the length of the hash in bytes; no value if there is no such hash.
std::optional<BYTE> hashByLength(DWORD length);

}  // namespace KelmoraID
