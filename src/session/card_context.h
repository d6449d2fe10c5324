// The object for one acquired CARD_DATA, held in its pvVendorSpecific from the acquisition to
// CardDeleteContext. Apart from the window, the PIN context, the agreements and the dialog's path
// it does not change after the acquisition.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bytes/byte_vector.h"
#include "platform/minidriver.h"
#include "platform/wide_text.h"

namespace KelmoraID {

/// One record for each key, with the layout of the platform's record: the list is handed out byte
/// for byte as the file cmapfile. The place in the list is the container index.
using KeyContainer = CONTAINER_MAP_RECORD;

struct CardContext {
    BYTE cardIdentifier[16];
    PCCERT_CONTEXT authCert;
    PCCERT_CONTEXT signCert;
    PCCERT_CONTEXT secondSignCert;  ///< set only with hasSecondSignCert
    std::vector<KeyContainer> containers;
    std::uint32_t parentWindow;
    std::string pinContextString;  ///< UTF-8, without terminator
    std::map<std::uint8_t, ByteVector> secretAgreements;
    bool hasSecondSignCert;
    WideString codeEntryLibPath;  ///< without terminator

    CardContext();
};

/// How certificates, and the keys in them, are encoded to the platform's calls.
inline constexpr DWORD certificateEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

/// The context of an acquired record.
/// @throws std::runtime_error if the record has none, which only a broken caller brings about
CardContext& contextOf(const CARD_DATA* pCardData);

/// Whether the card has a key container of that index: 0 and 1, and 2 with a second signing key.
bool hasContainer(const CardContext& context, BYTE bContainerIndex);

/// The certificate of a container: 0 authCert, 1 signCert, 2 secondSignCert. NULL for any other.
PCCERT_CONTEXT certificateOf(const CardContext& context, BYTE bContainerIndex);

/// Whether the certificate's public key has the algorithm "1.2.840.10045.2.1" (RFC 5480, 2.1.1).
bool hasEcPublicKey(PCCERT_CONTEXT certificate);

}  // namespace KelmoraID
