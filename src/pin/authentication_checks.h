// What CardAuthenticateEx was asked for, held against the kind of PIN that "PIN Information" has
// told at this moment.
#pragma once

#include <optional>

#include "platform/minidriver.h"

namespace KelmoraID {

struct AuthenticationRequest {
    DWORD dwFlags;
    bool hasPin;              ///< pbPinData is not NULL
    bool hasSessionPointers;  ///< neither ppbSessionPin nor pcbSessionPin is NULL
};

/// @return the status to end with, its lines written (some failures have no exit line), or no value
/// to go on to the verification
std::optional<DWORD> checkAuthentication(const PIN_INFO& pinInfo,
                                         const AuthenticationRequest& request);

}  // namespace KelmoraID
