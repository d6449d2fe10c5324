// The authentication entry points: CardAuthenticateEx, the one place where a PIN reaches the card,
// and its older form CardAuthenticatePin.
#include "log/logger.h"
#include "pin/authentication_checks.h"
#include "pin/dialog_loop.h"
#include "pin/verification_outcome.h"
#include "session/card_type_of.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr auto invalidParameter = static_cast<DWORD>(SCARD_E_INVALID_PARAMETER);
constexpr auto unexpected = static_cast<DWORD>(SCARD_E_UNEXPECTED);

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

// One attempt with the PIN that the platform has asked for.
DWORD verifyPlatformPin(const AttemptVerifyPin& attemptVerifyPin, PBYTE pbPinData, DWORD cbPinData,
                        PDWORD pcAttemptsRemaining) {
    const auto [aborted, outcome] = attemptGuarded(attemptVerifyPin, pbPinData, cbPinData);
    if (aborted) return unexpected;
    if (cbPinData == 0 || !outcome) {
        return refuseWith(SCARD_W_WRONG_CHV, "CMR_75: cbPinData is invalid.");
    }
    if (outcome->status == PinVerifyResult::verified) {
        return exitWith(authenticationScope, SCARD_S_SUCCESS);
    }
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
              "Entering the function, with parameters, PinId:'{}' dwFlags:'{}'", PinId, dwFlags);
    if (pCardData == nullptr) {
        return refuseWith(invalidParameter, "CMR_71: pCardData is NULL.");
    }
    if (pCardData->hSCardCtx == 0) return exitWith(authenticationScope, invalidParameter);
    CardOperations card(pCardData->hScard, cardTypeOf(pCardData));
    if (!isValidPinId(PinId)) {
        return refuseWith(invalidParameter, "CMR_72: PinId is invalid.");
    }
    // What kind of PIN it is falls here, afresh on every call.
    PIN_INFO pinInfo{};
    if (!readPinInfo(pCardData, PinId, pinInfo)) return exitWith(authenticationScope, unexpected);
    const AuthenticationRequest request{dwFlags, pbPinData != nullptr,
                                        ppbSessionPin != nullptr && pcbSessionPin != nullptr};
    const std::optional<DWORD> ended = checkAuthentication(pinInfo, request);
    if (ended) return *ended;

    const CardContext& context = contextOf(pCardData);
    const auto pinId = static_cast<KelmoraID::PinId>(PinId);
    const AttemptVerifyPin attemptVerifyPin(context, *pCardData, pinId, card);
    if (pinInfo.PinType == ExternalPinType) {
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
