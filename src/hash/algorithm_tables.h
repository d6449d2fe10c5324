// Constant tables of signature and hash algorithms: the names, the reference numbers that the cards
// use and the lengths. Held ready: nothing reads them at present.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace KelmoraID {

struct HashInfo {
    std::string_view name;
    std::uint32_t reference;
    std::uint32_t bits;
};

inline constexpr std::array<std::pair<std::uint32_t, HashInfo>, 1> signatureAlgorithmTable{{
    {2, {"DST_RSASSA_PKCS1_v1_5", 2, 3072}},
}};

inline constexpr std::array<std::pair<std::string_view, HashInfo>, 3> hashAlgorithmTable{{
    {"SHA-256", {"SHA-256", 0x40, 256}},
    {"SHA-384", {"SHA-384", 0x50, 384}},
    {"SHA-512", {"SHA-512", 0x60, 512}},
}};

}  // namespace KelmoraID
