#include "frame/card_reading.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "bytes/byte_texts.h"
#include "card/card_transaction_handler.h"
#include "frame/container_list.h"
#include "hash/serial_hash.h"
#include "log/logger.h"
#include "pairing/card_registration.h"
#include "profiles/card_profiles.h"
#include "session/card_context.h"
#include "session/card_type_of.h"

namespace KelmoraID {
namespace {

struct CardCertificates {
    ByteVector authCert;
    ByteVector signCert;
    ByteVector secondSignCert;
};

void logCertificates(const CardCertificates& certificates) {
    logDebug("Kelmora-ID-minidriver: authCert or signCert empty! Returning error.");
    logDebug(
        fmt::format("Kelmora-ID-minidriver, authCert: {}", bytesToLogHex(certificates.authCert)));
    logDebug(
        fmt::format("Kelmora-ID-minidriver, signCert: {}", bytesToLogHex(certificates.signCert)));
    logDebug(fmt::format("Kelmora-ID-minidriver, secondSignCert: {}",
                         bytesToLogHex(certificates.secondSignCert)));
}

PCCERT_CONTEXT certificateContext(const ByteVector& encoded) {
    return CertCreateCertificateContext(certificateEncodings, encoded.data(),
                                        static_cast<DWORD>(encoded.size()));
}

// A serial number of at most 16 bytes is the identity itself, with zeros behind.
void setCardIdentifier(CardContext& context, const ByteVector& serialNumber) {
    std::fill(std::begin(context.cardIdentifier), std::end(context.cardIdentifier), BYTE{0});
    if (serialNumber.size() <= sizeof(context.cardIdentifier)) {
        std::copy(serialNumber.begin(), serialNumber.end(), context.cardIdentifier);
        return;
    }
    const ByteVector hash = hashOfSerial(std::string(serialNumber.begin(), serialNumber.end()));
    std::copy_n(hash.begin(), std::min(hash.size(), sizeof(context.cardIdentifier)),
                context.cardIdentifier);
}

}  // namespace

DWORD readCard(PCARD_DATA pCardData) {
    CardTransactionHandler card(pCardData->hScard);
    card.setTrace(false);
    card.selectFINEIDApplication();  // A failure shows in what comes after.

    ByteVector serialNumber;
    std::string label;
    const bool known = card.GetSerialNumberAndLabelFromCIAInfo(serialNumber, label);
    // The label is not used beyond this test. Its terminated form counts.
    if (!known || serialNumber.empty() || label.c_str()[0] == '\0') {
        logDebug("GetSerialNumberAndLabelFromCIAInfo failed! Returning error.");
        return SCARD_E_UNEXPECTED;
    }

    const bool hasSecondSignCert = profileOf(cardTypeOf(pCardData)).hasSecondSigningKey;
    CardCertificates certificates;
    certificates.authCert = card.GetCertificate(0);
    certificates.signCert = card.GetCertificate(1);
    if (hasSecondSignCert) certificates.secondSignCert = card.GetCertificate(2);
    if (certificates.authCert.empty() || certificates.signCert.empty() ||
        (hasSecondSignCert && certificates.secondSignCert.empty())) {
        logCertificates(certificates);
        return SCARD_E_FILE_NOT_FOUND;
    }

    // quirk: half-filled-context. From here on it is the record's, also if a later step fails.
    auto* context = new CardContext;
    pCardData->pvVendorSpecific = context;
    context->hasSecondSignCert = hasSecondSignCert;

    context->authCert = certificateContext(certificates.authCert);
    context->signCert = certificateContext(certificates.signCert);
    if (context->authCert == nullptr || context->signCert == nullptr) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    if (hasSecondSignCert) {
        context->secondSignCert = certificateContext(certificates.secondSignCert);
        if (context->secondSignCert == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    }

    // The contexts hold copies: of these only the one for the directory services is still wanted.
    certificates.signCert = ByteVector();
    certificates.secondSignCert = ByteVector();

    setCardIdentifier(*context, serialNumber);
    listContainers(*pCardData, *context);
    registerAcquiredCard(certificates.authCert);
    return SCARD_S_SUCCESS;
}

}  // namespace KelmoraID
