// CardSignData: a signature with a key of the card. All the work is in the translation of the
// platform's description; the card does the padding and the signing.
#include <algorithm>
#include <variant>

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

DWORD refuse(DWORD status, const char* suffix) {
    return exitWith(scope, status, suffix);
}

// The fields of version 2 are read whatever the version, which is looked at only afterwards.
void logRequest(const CARD_SIGNING_INFO& info) {
    logToFile(scope,
              "Entering the function, with parameters, bContainerIndex:'{}' "
              "dwSigningFlags:'{:#010x}', dwVersion:'{}', dwKeySpec:'{}' \n "
              "dwPaddingType:'{:#010x}', pPaddingInfo:'{}', aiHashAlg:'{}' ",
              info.bContainerIndex, info.dwSigningFlags, info.dwVersion, info.dwKeySpec,
              info.dwPaddingType, fmt::ptr(info.pPaddingInfo), info.aiHashAlg);
}

bool isKeySpecification(DWORD dwKeySpec, bool isEcc) {
    return isEcc ? dwKeySpec >= AT_ECDSA_P256 && dwKeySpec <= AT_ECDHE_P521
                 : dwKeySpec >= AT_KEYEXCHANGE && dwKeySpec <= AT_SIGNATURE;
}

DWORD tellSize(const CardContext& context, bool isEcc, CARD_SIGNING_INFO& info) {
    logDebug("CardSignData: CARD_BUFFER_SIZE_ONLY");
    const KeyContainer& container = context.containers.at(info.bContainerIndex);
    const DWORD bits =
        info.bContainerIndex == 0 ? container.wKeyExchangeKeySizeBits : container.wSigKeySizeBits;
    info.cbSignedData = isEcc ? bits : bits / 8;  // quirk: signature-size-in-bits. Of an ECC key.
    info.pbData = nullptr;  // quirk: input-cleared. The input pointer, and not the output one.
    return exitWith(scope, SCARD_S_SUCCESS);
}

// The lines about the parts of the description that were read.
void logChoice(const SignatureChoice& choice) {
    if (choice.readPaddingInfo) logDropped("CardSignData: CARD_PADDING_INFO_PRESENT (if)");
    if (choice.readAlgorithmId) {
        logDebug("CardSignData: pInfo->aiHashAlg (if)");
        if (choice.readPaddingInfo) {
            logWarning("Entered both 'CARD_PADDING_INFO_PRESENT' and 'aiHashAlg' branch?");
        }
    }
    if (choice.readHashLength) logDebug("CardSignData: signsWithECC (if)");
}

// Of the two hashes of the SSL 3 form the card signs the SHA-1 alone.
ByteVector hashForCard(const ByteVector& data, const SignatureAlgorithm& algorithm) {
    if (algorithm.hashNibble != hashNibbleSha1 || data.size() != ssl3HashLength) return data;
    return {data.begin() + ssl3Md5Length, data.end()};
}

}  // namespace

DWORD WINAPI CardSignData(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo) {
    if (pCardData == nullptr || pInfo == nullptr) {
        return refuse(SCARD_E_INVALID_PARAMETER, ", pInfo or pCardData");
    }
    if (pCardData->hSCardCtx == 0) return refuse(SCARD_E_INVALID_PARAMETER, ", NoCardMode");
    logRequest(*pInfo);
    if (pInfo->dwVersion != 1 && pInfo->dwVersion != 2) {
        return refuse(ERROR_REVISION_MISMATCH, ", dwVersion");
    }
    if ((pInfo->dwSigningFlags & forbiddenFlags) != 0) {
        return refuse(SCARD_E_INVALID_PARAMETER, ", dwSigningFlags");
    }
    const CardContext& context = contextOf(pCardData);
    const BYTE index = pInfo->bContainerIndex;
    if (!hasContainer(context, index)) return refuse(SCARD_E_NO_KEY_CONTAINER, "");
    const bool isEcc = hasEcPublicKey(certificateOf(context, index));
    if (!isKeySpecification(pInfo->dwKeySpec, isEcc)) {
        return refuse(SCARD_E_INVALID_PARAMETER, isEcc ? ", dwKeySpec ECC" : ", dwKeySpec RSA");
    }
    if ((pInfo->dwSigningFlags & CARD_BUFFER_SIZE_ONLY) != 0) {
        return tellSize(context, isEcc, *pInfo);
    }
    if (pInfo->pbData == nullptr || pInfo->cbData == 0) {
        return refuse(SCARD_E_INVALID_PARAMETER, ", pbData or cbData");
    }
    const ByteVector data(pInfo->pbData, pInfo->pbData + pInfo->cbData);
    if (LogFile file; file) {
        file.writeLine(scope, "cbData:'{}' pbData:'{}',", pInfo->cbData, bytesToHexSpaced(data));
    }

    const SignatureChoice choice = chooseSignatureAlgorithm(*pInfo, isEcc);
    logChoice(choice);
    if (const auto* refusal = std::get_if<SignatureRefusal>(&choice.outcome)) {
        return exitWith(refusal->scope, refusal->status, refusal->suffix);
    }
    const auto& algorithm = std::get<SignatureAlgorithm>(choice.outcome);

    CardTransactionHandler card(pCardData->hScard);
    const ApduResult result = card.computeSignature(
        hashForCard(data, algorithm), algorithm.hashNibble, algorithm.schemeNibble,
        signatureKeyReference(context.hasSecondSignCert, isEcc, index), cardTypeOf(pCardData));
    if (!result.success()) {
        // quirk: success-without-signature. A status word without a platform code gives 0.
        return refuse(static_cast<DWORD>(result.transportErrorCode), " from APDU");
    }
    ByteVector signature = result.responseData;
    if (!isEcc) std::reverse(signature.begin(), signature.end());

    const auto signedData = static_cast<PBYTE>(pCardData->pfnCspAlloc(signature.size()));
    if (signedData == nullptr) return refuse(ERROR_NOT_ENOUGH_MEMORY, "");
    pInfo->pbSignedData = signedData;
    pInfo->cbSignedData = static_cast<DWORD>(signature.size());
    std::copy(signature.begin(), signature.end(), signedData);
    return exitWith(scope, SCARD_S_SUCCESS);
}

}  // namespace KelmoraID
