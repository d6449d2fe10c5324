// The authentication entry points: CardAuthenticateEx, the one place where a PIN reaches the card,
// and its older form CardAuthenticatePin.
#include <fmt/format.h>

#include "diag/logger.h"
#include "frame/card_type_of.h"
#include "frame/entry_log.h"
#include "frame/entry_points.h"
#include "pin/dialog_loop.h"
#include "pin/verification_outcome.h"

namespace KelmoraID {
namespace {

constexpr auto invalidParameter = static_cast<DWORD>(SCARD_E_INVALID_PARAMETER);
constexpr auto unsupportedFeature = static_cast<DWORD>(SCARD_E_UNSUPPORTED_FEATURE);
constexpr auto unexpected = static_cast<DWORD>(SCARD_E_UNEXPECTED);

DWORD exitAuthentication(DWORD status) {
    return exitWith(authenticationScope, status);
}

// "user" and "admin"; 0, which is no PinId, for any other text.
PIN_ID pinIdOfUser(WideStringView user) {
    if (user == WIDE_TEXT("user")) return static_cast<PIN_ID>(PinId::user);
    if (user == WIDE_TEXT("admin")) return static_cast<PIN_ID>(PinId::administrator);
    return 0;
}

bool readPinInfo(PCARD_DATA pCardData, PIN_ID pinId, PIN_INFO& pinInfo) {
    DWORD length = 0;
    return CardGetProperty(pCardData, WIDE_TEXT("PIN Information"),
                           reinterpret_cast<PBYTE>(&pinInfo), sizeof pinInfo, &length,
                           pinId) == static_cast<DWORD>(SCARD_S_SUCCESS);
}

// The checks of the flags other than CARD_PIN_SILENT_CONTEXT, with their lines. @return 0 to go on
DWORD checkFlags(DWORD dwFlags, bool isExternal, bool hasSessionPointers) {
    switch (dwFlags) {
        case 0:
            return 0;
        case CARD_AUTHENTICATE_GENERATE_SESSION_PIN:
            if (!isExternal) {
                logDebug("CMR_66: Session PIN generation is not supported.");
                return exitAuthentication(unsupportedFeature);
            }
            if (!hasSessionPointers) {
                logToFile(authenticationScope,
                          "CMR_76: Generating a session PIN and ppbSessionPin or pcbSessionPin is "
                          "NULL.");
                return exitAuthentication(invalidParameter);
            }
            return 0;  // The two outputs are never written, and meant not to be.
        case CARD_AUTHENTICATE_SESSION_PIN:
            logToFile(authenticationScope, "CMR_67: Session PIN validation is not supported.");
            return exitAuthentication(unsupportedFeature);
        default:
            logDebug("CMR_74: dwFlags is invalid.");
            return exitAuthentication(invalidParameter);
    }
}

// One attempt with the PIN that the platform has asked for.
DWORD verifyPlatformPin(const AttemptVerifyPin& attemptVerifyPin, PBYTE pbPinData, DWORD cbPinData,
                        PDWORD pcAttemptsRemaining) {
    const auto [aborted, outcome] = attemptGuarded(attemptVerifyPin, pbPinData, cbPinData);
    if (aborted) return unexpected;
    if (cbPinData == 0 || !outcome) {
        logDebug("CMR_75: cbPinData is invalid.");
        return static_cast<DWORD>(SCARD_W_WRONG_CHV);
    }
    if (outcome->status == PinVerifyResult::verified) return exitAuthentication(SCARD_S_SUCCESS);
    tellAttempts(pcAttemptsRemaining, outcome->attemptsRemaining);
    return exitWithRefusedPin(outcome->status);
}

}  // namespace

DWORD WINAPI CardAuthenticatePin(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbPin, DWORD cbPin,
                                 PDWORD pcAttemptsRemaining) {
    logEntry("CardAuthenticatePin");
    if (pwszUserId == nullptr) return invalidParameter;
    return CardAuthenticateEx(pCardData, pinIdOfUser(pwszUserId), 0, pbPin, cbPin, nullptr, nullptr,
                              pcAttemptsRemaining);
}

DWORD WINAPI CardAuthenticateEx(PCARD_DATA pCardData, PIN_ID PinId, DWORD dwFlags, PBYTE pbPinData,
                                DWORD cbPinData, PBYTE* ppbSessionPin, PDWORD pcbSessionPin,
                                PDWORD pcAttemptsRemaining) {
    logToFile(authenticationScope,
              fmt::format("Entering the function, with parameters, PinId:'{}' dwFlags:'{}'", PinId,
                          dwFlags));
    if (pCardData == nullptr) {
        logDebug("CMR_71: pCardData is NULL.");
        return invalidParameter;
    }
    if (pCardData->hSCardCtx == 0) return exitAuthentication(invalidParameter);
    CardOperations card(pCardData->hScard, cardTypeOf(pCardData));
    if (!isValidPinId(PinId)) {
        logDebug("CMR_72: PinId is invalid.");
        return invalidParameter;
    }
    // What kind of PIN it is falls here, afresh on every call.
    PIN_INFO pinInfo{};
    if (!readPinInfo(pCardData, PinId, pinInfo)) return exitAuthentication(unexpected);
    // "PIN Information" gives no empty PIN and asks for no secure entry; both tests stay.
    if (pinInfo.PinType == EmptyPinType) return exitAuthentication(SCARD_S_SUCCESS);
    const bool isExternal = pinInfo.PinType == ExternalPinType;
    if ((dwFlags & CARD_PIN_SILENT_CONTEXT) != 0 && isExternal) {
        logDebug("CMR_68: External authentication without UI is not supported.");
        return unsupportedFeature;
    }
    if (pbPinData == nullptr && !isExternal) {
        logDebug("CMR_73: pbPinData is NULL and PIN type is not external or empty.");
        return exitAuthentication(invalidParameter);
    }
    const DWORD refused = checkFlags(dwFlags & ~CARD_PIN_SILENT_CONTEXT, isExternal,
                                     ppbSessionPin != nullptr && pcbSessionPin != nullptr);
    if (refused != 0) return refused;
    if ((pinInfo.dwFlags & PIN_INFO_REQUIRE_SECURE_ENTRY) != 0) {
        return exitAuthentication(unexpected);
    }

    const CardContext& context = contextOf(pCardData);
    const auto pinId = static_cast<KelmoraID::PinId>(PinId);
    const AttemptVerifyPin attemptVerifyPin(context, *pCardData, pinId, card);
    if (isExternal) {
        logDropped(
            "CardAuthenticateEx: Normal operation: Kelmora ID is installed. Display external UI "
            "for PIN querying.");
        return runPinDialog(pinId, pcAttemptsRemaining, context, card, attemptVerifyPin);
    }
    logDropped(
        "CardAuthenticateEx: Unusual operation: No Kelmora ID PIN prompt. Use Windows's prompt.");
    return verifyPlatformPin(attemptVerifyPin, pbPinData, cbPinData, pcAttemptsRemaining);
}

}  // namespace KelmoraID
