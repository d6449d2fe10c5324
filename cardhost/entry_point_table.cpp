#include "entry_point_table.h"

#include <cstddef>
#include <cstring>

namespace cardhost {

namespace {

struct SlotPlace {
    const char* name;
    std::size_t offset;
};

constexpr SlotPlace slotPlaces[] = {
    {"CardDeleteContext", offsetof(CARD_DATA, pfnCardDeleteContext)},
    {"CardQueryCapabilities", offsetof(CARD_DATA, pfnCardQueryCapabilities)},
    {"CardDeleteContainer", offsetof(CARD_DATA, pfnCardDeleteContainer)},
    {"CardCreateContainer", offsetof(CARD_DATA, pfnCardCreateContainer)},
    {"CardGetContainerInfo", offsetof(CARD_DATA, pfnCardGetContainerInfo)},
    {"CardAuthenticatePin", offsetof(CARD_DATA, pfnCardAuthenticatePin)},
    {"CardGetChallenge", offsetof(CARD_DATA, pfnCardGetChallenge)},
    {"CardAuthenticateChallenge", offsetof(CARD_DATA, pfnCardAuthenticateChallenge)},
    {"CardUnblockPin", offsetof(CARD_DATA, pfnCardUnblockPin)},
    {"CardChangeAuthenticator", offsetof(CARD_DATA, pfnCardChangeAuthenticator)},
    {"CardDeauthenticate", offsetof(CARD_DATA, pfnCardDeauthenticate)},
    {"CardCreateDirectory", offsetof(CARD_DATA, pfnCardCreateDirectory)},
    {"CardDeleteDirectory", offsetof(CARD_DATA, pfnCardDeleteDirectory)},
    {"CardCreateFile", offsetof(CARD_DATA, pfnCardCreateFile)},
    {"CardReadFile", offsetof(CARD_DATA, pfnCardReadFile)},
    {"CardWriteFile", offsetof(CARD_DATA, pfnCardWriteFile)},
    {"CardDeleteFile", offsetof(CARD_DATA, pfnCardDeleteFile)},
    {"CardEnumFiles", offsetof(CARD_DATA, pfnCardEnumFiles)},
    {"CardGetFileInfo", offsetof(CARD_DATA, pfnCardGetFileInfo)},
    {"CardQueryFreeSpace", offsetof(CARD_DATA, pfnCardQueryFreeSpace)},
    {"CardQueryKeySizes", offsetof(CARD_DATA, pfnCardQueryKeySizes)},
    {"CardSignData", offsetof(CARD_DATA, pfnCardSignData)},
    {"CardRSADecrypt", offsetof(CARD_DATA, pfnCardRSADecrypt)},
    {"CardConstructDHAgreement", offsetof(CARD_DATA, pfnCardConstructDHAgreement)},
    {"CardDeriveKey", offsetof(CARD_DATA, pfnCardDeriveKey)},
    {"CardDestroyDHAgreement", offsetof(CARD_DATA, pfnCardDestroyDHAgreement)},
    {"CspGetDHAgreement", offsetof(CARD_DATA, pfnCspGetDHAgreement)},
    {"CardGetChallengeEx", offsetof(CARD_DATA, pfnCardGetChallengeEx)},
    {"CardAuthenticateEx", offsetof(CARD_DATA, pfnCardAuthenticateEx)},
    {"CardChangeAuthenticatorEx", offsetof(CARD_DATA, pfnCardChangeAuthenticatorEx)},
    {"CardDeauthenticateEx", offsetof(CARD_DATA, pfnCardDeauthenticateEx)},
    {"CardGetContainerProperty", offsetof(CARD_DATA, pfnCardGetContainerProperty)},
    {"CardSetContainerProperty", offsetof(CARD_DATA, pfnCardSetContainerProperty)},
    {"CardGetProperty", offsetof(CARD_DATA, pfnCardGetProperty)},
    {"CardSetProperty", offsetof(CARD_DATA, pfnCardSetProperty)},
    {"CspUnpadData", offsetof(CARD_DATA, pfnCspUnpadData)},
    {"MDImportSessionKey", offsetof(CARD_DATA, pfnMDImportSessionKey)},
    {"MDEncryptData", offsetof(CARD_DATA, pfnMDEncryptData)},
    {"CardImportSessionKey", offsetof(CARD_DATA, pfnCardImportSessionKey)},
    {"CardGetSharedKeyHandle", offsetof(CARD_DATA, pfnCardGetSharedKeyHandle)},
    {"CardGetAlgorithmProperty", offsetof(CARD_DATA, pfnCardGetAlgorithmProperty)},
    {"CardGetKeyProperty", offsetof(CARD_DATA, pfnCardGetKeyProperty)},
    {"CardSetKeyProperty", offsetof(CARD_DATA, pfnCardSetKeyProperty)},
    {"CardDestroyKey", offsetof(CARD_DATA, pfnCardDestroyKey)},
    {"CardProcessEncryptedData", offsetof(CARD_DATA, pfnCardProcessEncryptedData)},
    {"CardCreateContainerEx", offsetof(CARD_DATA, pfnCardCreateContainerEx)},
};

}  // namespace

std::vector<Slot> slotsOf(const CARD_DATA& record) {
    std::vector<Slot> slots;
    for (const SlotPlace& place : slotPlaces) {
        void* entryPoint = nullptr;
        std::memcpy(&entryPoint, reinterpret_cast<const char*>(&record) + place.offset,
                    sizeof(entryPoint));
        slots.push_back({place.name, entryPoint != nullptr});
    }
    return slots;
}

}  // namespace cardhost
