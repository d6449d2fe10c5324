// The references by which the cards know their private keys, for signatures and for ECDH. That of
// an RSA decipher follows from dwKeySpec alone and is worked out in the command class Set.
#pragma once

#include <algorithm>
#include <array>

#include "platform/win32.h"

namespace KelmoraID {

struct SignatureKeyReferences {
    bool hasSecondSignCert;
    bool isEcc;
    std::array<BYTE, 3> byContainer;
};

inline constexpr std::array<SignatureKeyReferences, 4> signatureKeyReferences{{
    {true, false, {0x01, 0x02, 0x03}},
    {true, true, {0x01, 0x02, 0x03}},
    {false, false, {0x81, 0x82, 0x82}},
    {false, true, {0x91, 0x93, 0x93}},
}};

/// The signature key of a container. @param bContainerIndex  any but 0 and 1 counts as 2
constexpr BYTE signatureKeyReference(bool hasSecondSignCert, bool isEcc, BYTE bContainerIndex) {
    for (const auto& row : signatureKeyReferences) {
        if (row.hasSecondSignCert == hasSecondSignCert && row.isEcc == isEcc) {
            return row.byContainer[std::min<std::size_t>(bContainerIndex, 2)];
        }
    }
    return 0;
}

/// The ECDH key, which is that of container 0.
constexpr BYTE agreementKeyReference(bool hasSecondSignCert) {
    return hasSecondSignCert ? 0x01 : 0x91;
}

}  // namespace KelmoraID
