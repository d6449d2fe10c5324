// The references by which the cards know their private keys, for signatures and for ECDH. That of
// an RSA decipher follows from dwKeySpec alone and is worked out in the command class Set.
#pragma once

#include <algorithm>

#include "platform/win32.h"

namespace KelmoraID {

/// By whether there is a second signing certificate, whether the key is an EC one, and the
/// container.
inline constexpr BYTE signatureKeyReferences[2][2][3] = {
    {{0x81, 0x82, 0x82}, {0x91, 0x93, 0x93}},
    {{0x01, 0x02, 0x03}, {0x01, 0x02, 0x03}},
};

/// The signature key of a container. @param bContainerIndex  any but 0 and 1 counts as 2
constexpr BYTE signatureKeyReference(bool hasSecondSignCert, bool isEcc, BYTE bContainerIndex) {
    return signatureKeyReferences[hasSecondSignCert][isEcc]
                                 [std::min<std::size_t>(bContainerIndex, 2)];
}

/// The ECDH key, which is that of container 0.
constexpr BYTE agreementKeyReference(bool hasSecondSignCert) {
    return hasSecondSignCert ? 0x01 : 0x91;
}

}  // namespace KelmoraID
