#include "pin/authentication_checks.h"

#include "log/logger.h"
#include "pin/verification_outcome.h"
#include "session/entry_log.h"

namespace KelmoraID {
namespace {

// The flags other than CARD_PIN_SILENT_CONTEXT.
std::optional<DWORD> checkFlags(DWORD flags, bool isExternal, bool hasSessionPointers) {
    switch (flags) {
        case 0:
            return std::nullopt;
        case CARD_AUTHENTICATE_GENERATE_SESSION_PIN:
            if (!isExternal) {
                logDebug("CMR_66: Session PIN generation is not supported.");
                return exitWith(authenticationScope, SCARD_E_UNSUPPORTED_FEATURE);
            }
            if (!hasSessionPointers) {
                logToFile(authenticationScope,
                          "CMR_76: Generating a session PIN and ppbSessionPin or pcbSessionPin is "
                          "NULL.");
                return exitWith(authenticationScope, SCARD_E_INVALID_PARAMETER);
            }
            return std::nullopt;  // quirk: session-pin-untold. The two outputs are never written.
        case CARD_AUTHENTICATE_SESSION_PIN:
            logToFile(authenticationScope, "CMR_67: Session PIN validation is not supported.");
            return exitWith(authenticationScope, SCARD_E_UNSUPPORTED_FEATURE);
        default:
            logDebug("CMR_74: dwFlags is invalid.");
            return exitWith(authenticationScope, SCARD_E_INVALID_PARAMETER);
    }
}

}  // namespace

std::optional<DWORD> checkAuthentication(const PIN_INFO& pinInfo,
                                         const AuthenticationRequest& request) {
    const bool isExternal = pinInfo.PinType == ExternalPinType;
    // "PIN Information" tells of no empty PIN, nor of secure entry below: both tests stay.
    if (pinInfo.PinType == EmptyPinType) return exitWith(authenticationScope, SCARD_S_SUCCESS);
    if ((request.dwFlags & CARD_PIN_SILENT_CONTEXT) != 0 && isExternal) {
        return refuseWith(SCARD_E_UNSUPPORTED_FEATURE,
                          "CMR_68: External authentication without UI is not supported.");
    }
    if (!request.hasPin && !isExternal) {
        logDebug("CMR_73: pbPinData is NULL and PIN type is not external or empty.");
        return exitWith(authenticationScope, SCARD_E_INVALID_PARAMETER);
    }
    const std::optional<DWORD> refused = checkFlags(request.dwFlags & ~CARD_PIN_SILENT_CONTEXT,
                                                    isExternal, request.hasSessionPointers);
    if (refused) return refused;
    if ((pinInfo.dwFlags & PIN_INFO_REQUIRE_SECURE_ENTRY) != 0) {
        return exitWith(authenticationScope, SCARD_E_UNEXPECTED);
    }
    return std::nullopt;
}

}  // namespace KelmoraID
