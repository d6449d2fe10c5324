// CardConstructDHAgreement and CardDestroyDHAgreement: ECDH with the key of container 0. The shared
// secret leaves the card and is kept in the context under a small index.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include "bytes/byte_texts.h"
#include "card/card_operations.h"
#include "profiles/card_profiles.h"
#include "session/card_context.h"
#include "session/card_type_of.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr const char* constructScope = "CardConstructDHAgreement";
constexpr const char* destroyScope = "CardDestroyDHAgreement";

// The header of a key blob, which is not looked at; X and Y follow.
constexpr DWORD blobHeaderLength = 8;
// The mark of an uncompressed point (SEC 1, 2.3.3).
constexpr BYTE uncompressedPoint = 0x04;

// The two statuses tell a key of the wrong kind from no key. 0 for the key of container 0.
DWORD containerStatus(const CardContext& context, BYTE bContainerIndex) {
    if (bContainerIndex == 0) return SCARD_S_SUCCESS;
    return hasContainer(context, bContainerIndex) ? SCARD_E_INVALID_PARAMETER
                                                  : SCARD_E_NO_KEY_CONTAINER;
}

// The checks of the arguments, none of which has a line.
DWORD checkArguments(PCARD_DATA pCardData, PCARD_DH_AGREEMENT_INFO pAgreementInfo) {
    if (pCardData == nullptr || pAgreementInfo == nullptr) return SCARD_E_INVALID_PARAMETER;
    if (pAgreementInfo->dwVersion != 2) return ERROR_REVISION_MISMATCH;
    if (pAgreementInfo->pbPublicKey == nullptr) return SCARD_E_INVALID_PARAMETER;
    const DWORD status = containerStatus(contextOf(pCardData), pAgreementInfo->bContainerIndex);
    if (status != SCARD_S_SUCCESS) return status;
    if (pAgreementInfo->dwFlags != 0) return SCARD_E_INVALID_PARAMETER;
    if (pAgreementInfo->dwPublicKey < blobHeaderLength) return SCARD_E_INVALID_PARAMETER;
    return SCARD_S_SUCCESS;
}

void logParameters(const CARD_DH_AGREEMENT_INFO& info, const ByteVector& blob) {
    logToFile(constructScope,
              "Entering the function, with parameters, bContainerIndex:'{:#010x}', "
              "cbReserved:'{:#010x}', dwFlags:'{:#010x}', dwPublicKey:'{:#010x}', "
              "dwVersion:'{:#010x}'",
              info.bContainerIndex, info.cbReserved, info.dwFlags, info.dwPublicKey,
              info.dwVersion);
    if (LogFile file; file) {
        file.writeLine(constructScope, "with parameters, pbPublicKey:'{}', ", bytesToLogHex(blob));
    }
    if (info.pbReserved != nullptr) {
        logToFile(constructScope, "with parameters, pbReserved:'{:#010x}'",
                  reinterpret_cast<std::uintptr_t>(info.pbReserved));
    } else {
        // quirk: misspelt-lines. A search in a log goes by the text.
        logToFile(constructScope, "with parameters, pbReserverd is NULL.");
    }
}

// The point as the card takes it: 04 X Y, and 00 04 X Y where the context has a second signing key
// or the card's row says so.
ByteVector pointForCard(const ByteVector& blob, bool hasSecondSignCert, CardType cardType) {
    ByteVector point;
    if (hasSecondSignCert || profileOf(cardType).zeroBeforePoint) point.push_back(0x00);
    point.push_back(uncompressedPoint);
    point.insert(point.end(), blob.begin() + blobHeaderLength, blob.end());
    return point;
}

// One above the largest index in use, in 8 bits: after 255 comes 0.
std::uint8_t nextIndex(const CardContext& context) {
    if (context.secretAgreements.empty()) return 1;
    return static_cast<std::uint8_t>(context.secretAgreements.rbegin()->first + 1);
}

}  // namespace

DWORD WINAPI CardConstructDHAgreement(PCARD_DATA pCardData,
                                      PCARD_DH_AGREEMENT_INFO pAgreementInfo) {
    logEntry(constructScope);
    const DWORD status = checkArguments(pCardData, pAgreementInfo);
    if (status != SCARD_S_SUCCESS) return status;

    CardContext& context = contextOf(pCardData);
    const CardType cardType = cardTypeOf(pCardData);
    CardOperations card(pCardData->hScard, cardType);
    if (!card.isPinVerified(PinId::user)) return SCARD_W_SECURITY_VIOLATION;

    const ByteVector blob(pAgreementInfo->pbPublicKey,
                          pAgreementInfo->pbPublicKey + pAgreementInfo->dwPublicKey);
    logParameters(*pAgreementInfo, blob);
    const ByteVector point = pointForCard(blob, context.hasSecondSignCert, cardType);
    ByteVector secret;
    try {
        secret = card.decipherEcdh(point, context.hasSecondSignCert);
    } catch (const std::logic_error&) {
        return exitWith(constructScope, SCARD_W_SECURITY_VIOLATION, " (security violation)");
    } catch (...) {  // Objects and pointers alike.
        return exitWith(constructScope, SCARD_E_UNEXPECTED, " (other)");
    }
    if (secret.empty()) return exitWith(constructScope, SCARD_E_UNEXPECTED, " (failure)");

    const std::uint8_t index = nextIndex(context);
    pAgreementInfo->bSecretAgreementIndex = index;
    // quirk: wrapped-index. It can be taken: the old secret then stays, with the same report.
    context.secretAgreements.emplace(index, std::move(secret));
    return exitWith(constructScope, SCARD_S_SUCCESS,
                    fmt::format(". Added DH secret agreement to index '{}'.", index).c_str());
}

DWORD WINAPI CardDestroyDHAgreement(PCARD_DATA pCardData, BYTE bSecretAgreementIndex,
                                    DWORD dwFlags) {
    logToFile(destroyScope,
              "Entering the function, with parameters, "
              "bSecretAgreementIndex:'{:#010x}', dwFlags:'{}'",
              bSecretAgreementIndex, dwFlags);
    if (pCardData == nullptr) return SCARD_E_INVALID_PARAMETER;
    CardContext& context = contextOf(pCardData);
    if (!context.secretAgreements.contains(bSecretAgreementIndex) || dwFlags != 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    CardOperations card(pCardData->hScard, cardTypeOf(pCardData));
    if (!card.isPinVerified(PinId::user)) return SCARD_W_SECURITY_VIOLATION;
    if (pCardData->hSCardCtx == 0) return SCARD_E_INVALID_PARAMETER;
    context.secretAgreements.erase(bSecretAgreementIndex);
    return SCARD_S_SUCCESS;
}

}  // namespace KelmoraID
