#include "hash/guid_name.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "hash/crypto_api_hash.h"

namespace KelmoraID {
namespace {

constexpr std::size_t sha1Bytes = 20;
using Sha1Digest = std::array<BYTE, sha1Bytes>;

bool sha1(const std::string& text, Sha1Digest& digest) {
    CryptoApiProvider provider;
    CryptoApiHash hash;
    return provider.acquire(PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) &&
           hash.create(provider, CALG_SHA1) &&
           hash.feed({reinterpret_cast<const BYTE*>(text.data()), text.size()}) &&
           hash.finish(digest);
}

}  // namespace

void containerGuidName(const std::string& text, WCHAR (&wszGuid)[40]) {
    Sha1Digest d{};
    if (!sha1(text, d)) return;
    GUID guid;
    guid.Data1 = static_cast<std::uint32_t>(d[0] | d[1] << 8 | d[2] << 16) |
                 static_cast<std::uint32_t>(d[3]) << 24;
    guid.Data2 = static_cast<std::uint16_t>(d[4] | d[5] << 8);
    guid.Data3 = static_cast<std::uint16_t>(((d[6] | d[7] << 8) & 0x0FFF) | 0x5000);
    // quirk: ninth-byte. It is dropped whole, where RFC 4122 replaces its two top bits.
    guid.Data4[0] = 0x80;
    std::copy(d.begin() + 9, d.begin() + 16, guid.Data4 + 1);
    WCHAR braced[39];
    if (StringFromGUID2(guid, braced, 39) != 0) std::copy(braced, braced + 39, wszGuid);
}

}  // namespace KelmoraID
