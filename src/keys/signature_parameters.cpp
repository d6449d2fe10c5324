#include "keys/signature_parameters.h"

#include <array>

namespace KelmoraID {
namespace {

struct NamedHash {
    WideStringView name;
    HashByName hash;
};

constexpr std::array<NamedHash, 8> namedHashes{{
    {WIDE_TEXT("SHA1"), {HashVerdict::accepted, hashNibbleSha1}},
    {WIDE_TEXT("SHA256"), {HashVerdict::accepted, hashNibbleSha256}},
    {WIDE_TEXT("SHA384"), {HashVerdict::accepted, hashNibbleSha384}},
    {WIDE_TEXT("SHA512"), {HashVerdict::accepted, hashNibbleSha512}},
    {WIDE_TEXT("SSL3_SHAMD5"), {HashVerdict::accepted, hashNibbleSha1}},
    {WIDE_TEXT("MD2"), {HashVerdict::invalid, 0}},
    {WIDE_TEXT("MD4"), {HashVerdict::invalid, 0}},
    {WIDE_TEXT("MD5"), {HashVerdict::invalid, 0}},
}};

struct NumberedHash {
    DWORD number;
    BYTE nibble;
};

constexpr std::array<NumberedHash, 4> hashesByAlgorithmId{{
    {CALG_SHA1, hashNibbleSha1},
    {CALG_SHA_256, hashNibbleSha256},
    {CALG_SHA_384, hashNibbleSha384},
    {CALG_SHA_512, hashNibbleSha512},
}};

constexpr std::array<NumberedHash, 5> hashesByLength{{
    {20, hashNibbleSha1},
    {28, hashNibbleSha224},
    {32, hashNibbleSha256},
    {48, hashNibbleSha384},
    {64, hashNibbleSha512},
}};

template <std::size_t count>
std::optional<BYTE> find(const std::array<NumberedHash, count>& hashes, DWORD number) {
    for (const NumberedHash& hash : hashes) {
        if (hash.number == number) return hash.nibble;
    }
    return std::nullopt;
}

}  // namespace

HashByName hashByName(LPCWSTR name) {
    const WideStringView wanted = name != nullptr ? name : WIDE_TEXT("SSL3_SHAMD5");
    for (const NamedHash& known : namedHashes) {
        if (known.name == wanted) return known.hash;
    }
    return {HashVerdict::unrecommended, 0};
}

std::optional<BYTE> hashByAlgorithmId(ALG_ID algorithm) {
    return find(hashesByAlgorithmId, algorithm);
}

std::optional<BYTE> hashByLength(DWORD length) {
    return find(hashesByLength, length);
}

}  // namespace KelmoraID
