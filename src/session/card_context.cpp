#include "session/card_context.h"

#include <cstring>
#include <stdexcept>

namespace KelmoraID {

CardContext::CardContext()
    : cardIdentifier{},
      authCert(nullptr),
      signCert(nullptr),
      secondSignCert(nullptr),
      parentWindow(0),
      hasSecondSignCert(false) {}

CardContext& contextOf(const CARD_DATA* pCardData) {
    if (pCardData->pvVendorSpecific == nullptr) throw std::runtime_error("no card was acquired");
    return *static_cast<CardContext*>(pCardData->pvVendorSpecific);
}

bool hasContainer(const CardContext& context, BYTE bContainerIndex) {
    return bContainerIndex <= (context.hasSecondSignCert ? 2 : 1);
}

PCCERT_CONTEXT certificateOf(const CardContext& context, BYTE bContainerIndex) {
    switch (bContainerIndex) {
        case 0:
            return context.authCert;
        case 1:
            return context.signCert;
        case 2:
            return context.secondSignCert;
        default:
            return nullptr;
    }
}

bool hasEcPublicKey(PCCERT_CONTEXT certificate) {
    const char* algorithm = certificate->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId;
    return algorithm != nullptr && std::strcmp(algorithm, "1.2.840.10045.2.1") == 0;
}

}  // namespace KelmoraID
