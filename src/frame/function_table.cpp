#include "frame/function_table.h"

#include "frame/boundary.h"
#include "session/entry_points.h"

namespace KelmoraID {

// Every slot from the lowest version of the record to version 7: acquisition lets only 7 pass. The
// two unused members between them are left as they are.
void fillFunctionTable(CARD_DATA& card, bool ecCard) {
    card.pfnCardDeleteContext = Guarded<&CardDeleteContext>::call;
    card.pfnCardQueryCapabilities = Guarded<&CardQueryCapabilities>::call;
    card.pfnCardDeleteContainer = Guarded<&CardDeleteContainer>::call;
    card.pfnCardCreateContainer = Guarded<&CardCreateContainer>::call;
    card.pfnCardGetContainerInfo = Guarded<&CardGetContainerInfo>::call;
    card.pfnCardAuthenticatePin = Guarded<&CardAuthenticatePin>::call;
    card.pfnCardGetChallenge = Guarded<&CardGetChallenge>::call;
    card.pfnCardAuthenticateChallenge = Guarded<&CardAuthenticateChallenge>::call;
    card.pfnCardUnblockPin = Guarded<&CardUnblockPin>::call;
    card.pfnCardChangeAuthenticator = Guarded<&CardChangeAuthenticator>::call;
    // quirk: no-deauthenticate. NULL although there is a function of that name: the platform is to
    // use CardDeauthenticateEx, which refuses.
    card.pfnCardDeauthenticate = nullptr;
    card.pfnCardCreateDirectory = Guarded<&CardCreateDirectory>::call;
    card.pfnCardDeleteDirectory = Guarded<&CardDeleteDirectory>::call;
    card.pfnCardCreateFile = Guarded<&CardCreateFile>::call;
    card.pfnCardReadFile = Guarded<&CardReadFile>::call;
    card.pfnCardWriteFile = Guarded<&CardWriteFile>::call;
    card.pfnCardDeleteFile = Guarded<&CardDeleteFile>::call;
    card.pfnCardEnumFiles = Guarded<&CardEnumFiles>::call;
    card.pfnCardGetFileInfo = Guarded<&CardGetFileInfo>::call;
    card.pfnCardQueryFreeSpace = Guarded<&CardQueryFreeSpace>::call;
    card.pfnCardQueryKeySizes = Guarded<&CardQueryKeySizes>::call;
    card.pfnCardSignData = Guarded<&CardSignData>::call;
    card.pfnCardRSADecrypt = Guarded<&CardRSADecrypt>::call;
    card.pfnCardConstructDHAgreement = ecCard ? Guarded<&CardConstructDHAgreement>::call : nullptr;
    card.pfnCardDeriveKey = ecCard ? Guarded<&CardDeriveKey>::call : nullptr;
    card.pfnCardDestroyDHAgreement = ecCard ? Guarded<&CardDestroyDHAgreement>::call : nullptr;
    card.pfnCspGetDHAgreement = Guarded<&CspGetDHAgreement>::call;
    card.pfnCardGetChallengeEx = Guarded<&CardGetChallengeEx>::call;
    card.pfnCardAuthenticateEx = Guarded<&CardAuthenticateEx>::call;
    card.pfnCardChangeAuthenticatorEx = Guarded<&CardChangeAuthenticatorEx>::call;
    card.pfnCardDeauthenticateEx = Guarded<&CardDeauthenticateEx>::call;
    card.pfnCardGetContainerProperty = Guarded<&CardGetContainerProperty>::call;
    card.pfnCardSetContainerProperty = Guarded<&CardSetContainerProperty>::call;
    card.pfnCardGetProperty = Guarded<&CardGetProperty>::call;
    card.pfnCardSetProperty = Guarded<&CardSetProperty>::call;
    card.pfnCspUnpadData = Guarded<&CspUnpadData>::call;
    card.pfnMDImportSessionKey = Guarded<&MDImportSessionKey>::call;
    card.pfnMDEncryptData = Guarded<&MDEncryptData>::call;
    card.pfnCardImportSessionKey = Guarded<&CardImportSessionKey>::call;
    card.pfnCardGetSharedKeyHandle = Guarded<&CardGetSharedKeyHandle>::call;
    card.pfnCardGetAlgorithmProperty = Guarded<&CardGetAlgorithmProperty>::call;
    card.pfnCardGetKeyProperty = Guarded<&CardGetKeyProperty>::call;
    card.pfnCardSetKeyProperty = Guarded<&CardSetKeyProperty>::call;
    card.pfnCardDestroyKey = Guarded<&CardDestroyKey>::call;
    card.pfnCardProcessEncryptedData = Guarded<&CardProcessEncryptedData>::call;
    card.pfnCardCreateContainerEx = Guarded<&CardCreateContainerEx>::call;
}

}  // namespace KelmoraID
