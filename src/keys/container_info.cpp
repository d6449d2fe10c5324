// CardGetContainerInfo: the public key of a container, from the certificate kept at acquisition. No
// command goes to the card.
#include <algorithm>
#include <optional>

#include "keys/public_key_blobs.h"
#include "session/card_context.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardGetContainerInfo";

// A key's place in the caller's record.
struct BlobPlace {
    DWORD& length;
    PBYTE& pointer;
};

BlobPlace placeOf(CONTAINER_INFO& info, KeyUse use) {
    if (use == KeyUse::exchange) return {info.cbKeyExPublicKey, info.pbKeyExPublicKey};
    return {info.cbSigPublicKey, info.pbSigPublicKey};
}

DWORD giveEccKey(const CARD_DATA& cardData, const CRYPT_BIT_BLOB& key, KeyUse use,
                 BlobPlace place) {
    const auto blob = eccPublicKeyBlob({key.pbData, key.cbData}, use);
    if (!blob) return SCARD_E_UNEXPECTED;
    // quirk: ecc-length-without-memory. It stands also where the allocation fails, unlike an RSA
    // one.
    place.length = static_cast<DWORD>(blob->size());
    place.pointer = static_cast<PBYTE>(cardData.pfnCspAlloc(blob->size()));
    if (place.pointer == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    std::copy(blob->begin(), blob->end(), place.pointer);
    return SCARD_S_SUCCESS;
}

DWORD giveRsaKey(const CARD_DATA& cardData, const CRYPT_BIT_BLOB& key, KeyUse use,
                 BlobPlace place) {
    const DWORD room = rsaPublicKeyBlobLength(key);
    if (room == 0) return SCARD_E_UNEXPECTED;
    const auto blob = static_cast<PBYTE>(cardData.pfnCspAlloc(room));
    if (blob == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    const DWORD length = writeRsaPublicKeyBlob(key, use, {blob, room});
    if (length == 0) {
        cardData.pfnCspFree(blob);
        return SCARD_E_UNEXPECTED;
    }
    place.pointer = blob;
    place.length = length;
    return SCARD_S_SUCCESS;
}

}  // namespace

DWORD WINAPI CardGetContainerInfo(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                  PCONTAINER_INFO pContainerInfo) {
    logEntry(scope);
    if (pCardData == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_377: pCardData is NULL");
    }
    if (pContainerInfo == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_378: pContainerInfo is NULL");
    }
    if (dwFlags != 0) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_380: dwFlags is nonzero");
    }
    logToFile(scope, "with parameters, bContainerIndex:'{}' dwFlags:'{}', dwVersion:'{}'",
              bContainerIndex, dwFlags, pContainerInfo->dwVersion);

    const CardContext& context = contextOf(pCardData);
    if (!hasContainer(context, bContainerIndex)) {
        return exitWith(scope, SCARD_E_NO_KEY_CONTAINER);
    }
    // quirk: untold-exits. The line above has the version that is refused here.
    if (pContainerInfo->dwVersion > 1) return ERROR_REVISION_MISMATCH;
    *pContainerInfo = CONTAINER_INFO{};
    pContainerInfo->dwVersion = 1;

    const PCCERT_CONTEXT certificate = certificateOf(context, bContainerIndex);
    const CRYPT_BIT_BLOB& key = certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    const KeyUse use = bContainerIndex == 0 ? KeyUse::exchange : KeyUse::signature;
    const auto give = hasEcPublicKey(certificate) ? giveEccKey : giveRsaKey;
    return exitWith(scope, give(*pCardData, key, use, placeOf(*pContainerInfo, use)));
}

}  // namespace KelmoraID
