// CardSignData: a signature with a key of the card. All the work is in the translation of the
// platform's description; the card does the padding and the signing.
#include <algorithm>
#include <optional>

#include "bytes/byte_texts.h"
#include "card/card_transaction_handler.h"
#include "card/key_references.h"
#include "keys/signature_parameters.h"
#include "session/card_context.h"
#include "session/card_type_of.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardSignData";

constexpr DWORD forbiddenFlags = 0x9FFFFFF0;

// MD5 and SHA-1 values in a row, of which the card signs the second.
constexpr DWORD ssl3HashLength = 36;
constexpr DWORD ssl3Md5Length = 16;

struct Algorithm {
    BYTE hashNibble = 0;
    BYTE schemeNibble = 0;
};

// No value to go on, or the status of a refusal whose exit line is written already.
using Refusal = std::optional<DWORD>;

DWORD keySizeBits(const CardContext& context, BYTE bContainerIndex) {
    const KeyContainer& container = context.containers.at(bContainerIndex);
    return bContainerIndex == 0 ? container.wKeyExchangeKeySizeBits : container.wSigKeySizeBits;
}

Refusal readPaddingInfo(const CARD_SIGNING_INFO& info, Algorithm& algorithm) {
    logDropped("CardSignData: CARD_PADDING_INFO_PRESENT (if)");
    switch (info.dwPaddingType) {
        case CARD_PADDING_NONE:
            return exitWith(scope, SCARD_E_UNSUPPORTED_FEATURE, ", padding none");
        case CARD_PADDING_OAEP:
            return exitWith(scope, SCARD_E_UNSUPPORTED_FEATURE, ", padding OAEP");
        case CARD_PADDING_PKCS1:
            algorithm.schemeNibble = schemeNibblePkcs1;
            break;
        case CARD_PADDING_PSS:
            algorithm.schemeNibble = schemeNibblePss;
            break;
        default:
            return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", dwPaddingType");
    }
    if (info.pPaddingInfo == nullptr) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", pPaddingInfo");
    }
    // The name is the first field of the PSS record too; the length of its salt is not read.
    const auto padding = static_cast<const BCRYPT_PKCS1_PADDING_INFO*>(info.pPaddingInfo);
    const HashByName hash = hashByName(padding->pszAlgId);
    switch (hash.verdict) {
        case HashVerdict::accepted:
            algorithm.hashNibble = hash.nibble;
            return std::nullopt;
        case HashVerdict::invalid:
            return exitWith(scope, SCARD_E_UNSUPPORTED_FEATURE, ", invalid hash algorithm");
        case HashVerdict::unrecommended:
            break;
    }
    // This line goes out under another entry point's name, and is meant to.
    return exitWith("CardReadFile", SCARD_E_UNSUPPORTED_FEATURE, ", unrecommended algorithm");
}

Refusal readAlgorithmId(const CARD_SIGNING_INFO& info, Algorithm& algorithm) {
    logDebug("CardSignData: pInfo->aiHashAlg (if)");
    if ((info.dwSigningFlags & CARD_PADDING_INFO_PRESENT) != 0) {
        logWarning("Entered both 'CARD_PADDING_INFO_PRESENT' and 'aiHashAlg' branch?");
    }
    const auto hashNibble = hashByAlgorithmId(info.aiHashAlg);
    if (!hashNibble) {
        return exitWith(scope, SCARD_E_UNSUPPORTED_FEATURE, " invalid hash algorithm (hashAldId)");
    }
    algorithm = {*hashNibble, schemeNibblePkcs1};  // Over PSS as well; meant so.
    return std::nullopt;
}

Refusal readHashLength(const CARD_SIGNING_INFO& info, Algorithm& algorithm) {
    logDebug("CardSignData: signsWithECC (if)");
    const auto hashNibble = hashByLength(info.cbData);
    if (!hashNibble) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, " invalid hash algorihm ECC");
    }
    algorithm = {*hashNibble, schemeNibbleEcdsa};
    return std::nullopt;
}

// Each description that is there is read in turn and may refuse; the last one read decides.
Refusal readAlgorithm(const CARD_SIGNING_INFO& info, bool isEcc, Algorithm& algorithm) {
    const bool hasPaddingInfo = (info.dwSigningFlags & CARD_PADDING_INFO_PRESENT) != 0;
    if (hasPaddingInfo) {
        if (const Refusal refusal = readPaddingInfo(info, algorithm)) return refusal;
    }
    if (info.aiHashAlg != 0) {
        if (const Refusal refusal = readAlgorithmId(info, algorithm)) return refusal;
    }
    if (isEcc) return readHashLength(info, algorithm);
    if (!hasPaddingInfo && info.aiHashAlg == 0) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", no hash algorithm");
    }
    return std::nullopt;
}

}  // namespace

DWORD WINAPI CardSignData(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo) {
    if (pCardData == nullptr || pInfo == nullptr) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", pInfo or pCardData");
    }
    if (pCardData->hSCardCtx == 0) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", NoCardMode");
    }
    // The fields of version 2 are read whatever the version, which is looked at only afterwards.
    logToFile(scope, fmt::format("Entering the function, with parameters, bContainerIndex:'{}' "
                                 "dwSigningFlags:'{:#010x}', dwVersion:'{}', dwKeySpec:'{}' \n "
                                 "dwPaddingType:'{:#010x}', pPaddingInfo:'{}', aiHashAlg:'{}' ",
                                 pInfo->bContainerIndex, pInfo->dwSigningFlags, pInfo->dwVersion,
                                 pInfo->dwKeySpec, pInfo->dwPaddingType,
                                 fmt::ptr(pInfo->pPaddingInfo), pInfo->aiHashAlg));
    if (pInfo->dwVersion != 1 && pInfo->dwVersion != 2) {
        return exitWith(scope, ERROR_REVISION_MISMATCH, ", dwVersion");
    }
    if ((pInfo->dwSigningFlags & forbiddenFlags) != 0) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", dwSigningFlags");
    }
    const CardContext& context = contextOf(pCardData);
    const BYTE index = pInfo->bContainerIndex;
    if (index > (context.hasSecondSignCert ? 2 : 1)) {
        return exitWith(scope, SCARD_E_NO_KEY_CONTAINER);
    }
    const bool isEcc = hasEcPublicKey(certificateOf(context, index));
    if (!isEcc && (pInfo->dwKeySpec < AT_KEYEXCHANGE || pInfo->dwKeySpec > AT_SIGNATURE)) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", dwKeySpec RSA");
    }
    if (isEcc && (pInfo->dwKeySpec < AT_ECDSA_P256 || pInfo->dwKeySpec > AT_ECDHE_P521)) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", dwKeySpec ECC");
    }
    if ((pInfo->dwSigningFlags & CARD_BUFFER_SIZE_ONLY) != 0) {
        logDebug("CardSignData: CARD_BUFFER_SIZE_ONLY");
        // Bits for an ECC key, and the input pointer cleared, not the output one: both meant so.
        const DWORD bits = keySizeBits(context, index);
        pInfo->cbSignedData = isEcc ? bits : bits / 8;
        pInfo->pbData = nullptr;
        return exitWith(scope, SCARD_S_SUCCESS);
    }
    if (pInfo->pbData == nullptr || pInfo->cbData == 0) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ", pbData or cbData");
    }
    ByteVector data(pInfo->pbData, pInfo->pbData + pInfo->cbData);
    logToFile(scope,
              fmt::format("cbData:'{}' pbData:'{}',", pInfo->cbData, bytesToHexSpaced(data)));

    const BYTE keyRef = signatureKeyReference(context.hasSecondSignCert, isEcc, index);
    Algorithm algorithm;
    if (const Refusal refusal = readAlgorithm(*pInfo, isEcc, algorithm)) return *refusal;

    CardTransactionHandler card(pCardData->hScard);
    if (algorithm.hashNibble == hashNibbleSha1 && data.size() == ssl3HashLength) {
        data.erase(data.begin(), data.begin() + ssl3Md5Length);
    }
    const ApduResult result = card.computeSignature(
        data, algorithm.hashNibble, algorithm.schemeNibble, keyRef, cardTypeOf(pCardData));
    if (!result.success()) {
        // 0 for a status word without platform code: success reported, with no signature. Meant so.
        return exitWith(scope, static_cast<DWORD>(result.transportErrorCode), " from APDU");
    }
    ByteVector signature = result.responseData;
    if (!isEcc) std::reverse(signature.begin(), signature.end());

    const auto signedData = static_cast<PBYTE>(pCardData->pfnCspAlloc(signature.size()));
    if (signedData == nullptr) return exitWith(scope, ERROR_NOT_ENOUGH_MEMORY);
    pInfo->pbSignedData = signedData;
    pInfo->cbSignedData = static_cast<DWORD>(signature.size());
    std::copy(signature.begin(), signature.end(), signedData);
    return exitWith(scope, SCARD_S_SUCCESS);
}

}  // namespace KelmoraID
