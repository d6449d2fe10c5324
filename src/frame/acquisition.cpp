// The acquisition of a card, and its counterpart that gives the card's object up again.
#include <fmt/format.h>

#include "frame/acquisition.h"
#include "frame/card_reading.h"
#include "frame/function_table.h"
#include "log/logger.h"
#include "profiles/card_profiles.h"
#include "session/card_context.h"
#include "session/card_type_of.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

bool hasUsableNames(const CARD_DATA& card) {
    return card.pbAtr != nullptr && card.pwszCardName != nullptr && card.cbAtr != 0 &&
           card.cbAtr != 0xFFFFFFFF;
}

bool hasMemoryFunctions(const CARD_DATA& card) {
    return card.pfnCspAlloc != nullptr && card.pfnCspReAlloc != nullptr &&
           card.pfnCspFree != nullptr;
}

}  // namespace

DWORD WINAPI acquireContext(PCARD_DATA pCardData, DWORD dwFlags) {
    logEntry("CardAcquireContext");
    if (pCardData == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_35: pCardData is NULL");
    }
    if (dwFlags != 0) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_36: nonzero dwFlags was passed");
    }
    // The version is negotiated in the caller's record, also where it is refused.
    if (pCardData->dwVersion == 0) pCardData->dwVersion = 1;
    if (pCardData->dwVersion < CARD_DATA_VERSION_SEVEN) {
        logError(fmt::format("CMR_37: Too low version: {} < {} (ERROR_REVISION_MISMATCH: {})",
                             pCardData->dwVersion, CARD_DATA_VERSION_SEVEN,
                             ERROR_REVISION_MISMATCH));
        return ERROR_REVISION_MISMATCH;
    }
    pCardData->dwVersion = CARD_DATA_VERSION_SEVEN;
    if (!hasUsableNames(*pCardData)) {
        return refuseWith(
            SCARD_E_INVALID_PARAMETER,
            "CMR_38, CMR_39 or CMR_40: NULL pbAtr, invalid cvAtr or NULL pwszCardName was passed");
    }
    if (!isSupported(cardTypeOf(pCardData))) {
        return refuseWith(SCARD_E_UNKNOWN_CARD, "CMR_41: Card not recognized");
    }
    if (!hasMemoryFunctions(*pCardData)) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_42: Memory management pointer is NULL");
    }
    if (pCardData->hScard == 0 || pCardData->hSCardCtx == 0) return SCARD_E_INVALID_HANDLE;

    if (const DWORD status = readCard(pCardData); status != 0) return status;
    fillFunctionTable(*pCardData, hasEcPublicKey(contextOf(pCardData).authCert));
    // quirk: untold-exits. This entry point has no exit line, whatever its end.
    return SCARD_S_SUCCESS;
}

DWORD WINAPI CardDeleteContext(PCARD_DATA pCardData) {
    logEntry("CardDeleteContext");
    if (pCardData == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_48: pCardData is NULL.");
    }
    auto* context = static_cast<CardContext*>(pCardData->pvVendorSpecific);
    if (context == nullptr) return SCARD_S_SUCCESS;
    if (context->authCert != nullptr) CertFreeCertificateContext(context->authCert);
    if (context->signCert != nullptr) CertFreeCertificateContext(context->signCert);
    // quirk: second-certificate-given-up. The handle of secondSignCert is never freed.
    // quirk: vendor-pointer-stays. The record's member keeps the address of what is gone.
    delete context;
    return SCARD_S_SUCCESS;
}

}  // namespace KelmoraID
