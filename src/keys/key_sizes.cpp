// CardQueryKeySizes: the key sizes that there are, by dwKeySpec.
#include <algorithm>
#include <array>

#include "session/card_context.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardQueryKeySizes";

struct KeySize {
    DWORD dwKeySpec;
    DWORD (*bits)(const CardContext& context);
    DWORD increment;
};

template <DWORD size>
DWORD fixedBits(const CardContext&) {
    return size;
}
DWORD exchangeKeyBits(const CardContext& context) {
    return context.containers.at(0).wKeyExchangeKeySizeBits;
}
DWORD signatureKeyBits(const CardContext& context) {
    return context.containers.at(1).wSigKeySizeBits;
}

constexpr std::array<KeySize, 8> keySizes{{
    {AT_KEYEXCHANGE, exchangeKeyBits, 0},
    {AT_SIGNATURE, signatureKeyBits, 0},
    {AT_ECDSA_P256, fixedBits<256>, 1},
    {AT_ECDSA_P384, fixedBits<384>, 1},
    {AT_ECDSA_P521, fixedBits<521>, 1},
    {AT_ECDHE_P256, fixedBits<256>, 1},
    {AT_ECDHE_P384, fixedBits<384>, 1},
    {AT_ECDHE_P521, fixedBits<521>, 1},
}};

}  // namespace

DWORD WINAPI CardQueryKeySizes(PCARD_DATA pCardData, DWORD dwKeySpec, DWORD dwFlags,
                               PCARD_KEY_SIZES pKeySizes) {
    if (pCardData == nullptr || pKeySizes == nullptr) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER);
    }
    logToFile(scope,
              "Entering the function, with parameters, dwKeySpec:'{}' "
              "dwFlags:'{}', dwVersion:'{}'",
              dwKeySpec, dwFlags, pKeySizes->dwVersion);
    const auto row = std::find_if(keySizes.begin(), keySizes.end(),
                                  [&](const KeySize& size) { return size.dwKeySpec == dwKeySpec; });
    if (row == keySizes.end()) return exitWith(scope, SCARD_E_INVALID_PARAMETER);

    const DWORD bits = row->bits(contextOf(pCardData));
    pKeySizes->dwMinimumBitlen = bits;
    pKeySizes->dwDefaultBitlen = bits;
    pKeySizes->dwMaximumBitlen = bits;
    pKeySizes->dwIncrementalBitlen = row->increment;

    // quirk: sizes-ahead-of-refusal. Only now, so that they are there on these two failures too.
    if (dwFlags != 0) return exitWith(scope, SCARD_E_INVALID_PARAMETER);
    if (pKeySizes->dwVersion >= 2) return exitWith(scope, ERROR_REVISION_MISMATCH);
    return exitWith(scope, SCARD_S_SUCCESS);
}

}  // namespace KelmoraID
