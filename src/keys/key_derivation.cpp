// CardDeriveKey: key material from a shared secret by one hash of the platform's,
// H(prepend || secret || append), with the secret in the card's byte order.
#include <algorithm>

#include "card/card_operations.h"
#include "keys/kdf_parameters.h"
#include "keys/named_hash.h"
#include "session/card_context.h"
#include "session/card_type_of.h"
#include "session/entry_log.h"
#include "session/entry_points.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardDeriveKey";

// quirk: key-handle-flag. CARD_RETURN_KEY_HANDLE is let through: no key handle is ever returned.
constexpr DWORD allowedFlags = CARD_BUFFER_SIZE_ONLY | CARD_RETURN_KEY_HANDLE;

constexpr WideStringView hashKdf = WIDE_TEXT("HASH");

// The fields of the record, read before its version is known.
void logParameters(const CARD_DERIVE_KEY& info) {
    logToFile(scope,
              "with parameters, bSecretAgreementIndex:'{:#010x}', "
              "dwFlags:'{:#010x}', dwVersion:'{:#010x}', dwKeyLen:'{}'",
              info.bSecretAgreementIndex, info.dwFlags, info.dwVersion, info.dwKeyLen);
    if (info.pwszAlgId != nullptr) {
        logToFile(scope, "pwszAlgId exists: {}.", wideToUtf8(info.pwszAlgId).c_str());
    }
    if (info.pwszKDF != nullptr) {
        logToFile(scope, "pwszKDF exists: {}.", wideToUtf8(info.pwszKDF).c_str());
    }
}

}  // namespace

DWORD WINAPI CardDeriveKey(PCARD_DATA pCardData, PCARD_DERIVE_KEY pAgreementInfo) {
    logEntry(scope);
    if (pCardData == nullptr || pAgreementInfo == nullptr) return SCARD_E_INVALID_PARAMETER;
    CARD_DERIVE_KEY& info = *pAgreementInfo;
    logParameters(info);
    if (info.dwVersion != 1 && info.dwVersion != 2) {
        return exitWith(scope, ERROR_REVISION_MISMATCH, ". CMR_443");
    }
    if (info.pwszKDF == nullptr) return exitWith(scope, SCARD_E_INVALID_PARAMETER, ". CMR_444");
    if ((info.dwFlags & ~allowedFlags) != 0) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ". CMR_445");
    }
    if (info.pwszKDF != hashKdf) return exitWith(scope, SCARD_E_INVALID_PARAMETER, ". CMR_446");
    const auto& secretAgreements = contextOf(pCardData).secretAgreements;
    const auto agreement = secretAgreements.find(info.bSecretAgreementIndex);
    if (agreement == secretAgreements.end()) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ". CMR_447");
    }
    KdfParameters parameters;
    if (info.pParameterList != nullptr) {
        logToFile(scope, "pParameterList exists.");
        const auto& list = *static_cast<const BCryptBufferDesc*>(info.pParameterList);
        if (const char* refusal = readKdfParameters(scope, list, parameters)) {
            return exitWith(scope, SCARD_E_INVALID_PARAMETER, refusal);
        }
    }
    CardOperations card(pCardData->hScard, cardTypeOf(pCardData));
    if (!card.isPinVerified(PinId::user)) return SCARD_W_SECURITY_VIOLATION;
    // quirk: late-context-check. All other entry points that look at it do so first.
    if (pCardData->hSCardCtx == 0) {
        return exitWith(scope, SCARD_E_INVALID_PARAMETER, ". isNoCardMode");
    }

    HashProvider provider;
    if (!provider.open(parameters.hashName)) {
        return exitWith(scope, SCARD_E_UNEXPECTED, ". BCryptOpenAlgorithmProvider.");
    }
    DWORD digestLength = 0;
    if (!provider.getDigestLength(digestLength)) {
        provider.close();
        return exitWith(scope, SCARD_E_UNEXPECTED, ". BCryptGetProperty.");
    }
    info.cbDerivedKey = digestLength;
    if ((info.dwFlags & CARD_BUFFER_SIZE_ONLY) != 0) {
        return exitWith(
            scope, SCARD_S_SUCCESS,
            fmt::format(". cbDeriveKey set (CARD_BUFFER_SIZE_ONLY): {}.", digestLength).c_str());
    }
    const ByteVector secret = agreement->second;
    ByteVector derivedKey(digestLength);
    HashComputation hash;
    if (!hash.create(provider)) {
        provider.close();
        return exitWith(scope, SCARD_E_UNEXPECTED, ". BCryptCreateHash.");
    }
    const bool hashed = hash.feed(parameters.prepend) && hash.feed(secret) &&
                        hash.feed(parameters.append) && hash.finish(derivedKey);
    hash.destroy();
    provider.close();
    if (!hashed) return exitWith(scope, SCARD_E_UNEXPECTED, ". BCryptHashData.");

    info.pbDerivedKey = static_cast<PBYTE>(pCardData->pfnCspAlloc(info.cbDerivedKey));
    if (info.pbDerivedKey == nullptr) {
        return exitWith(scope, ERROR_NOT_ENOUGH_MEMORY, ". No memory.");
    }
    std::copy(derivedKey.begin(), derivedKey.end(), info.pbDerivedKey);
    return exitWith(scope, SCARD_S_SUCCESS, ".");
}

}  // namespace KelmoraID
