// The operations that the driver refuses, each as a call with arguments that say nothing.
#pragma once

#include "platform/minidriver.h"

namespace boundary {

struct RefusedOperation {
    const char* name;
    /// By a table, which need not be that of the record.
    DWORD (*call)(const CARD_DATA& table, PCARD_DATA record);
};

inline constexpr RefusedOperation refusedOperations[] = {
    {"CardDeleteContainer",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardDeleteContainer(record, 0, 0);
     }},
    {"CardCreateContainer",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardCreateContainer(record, 0, 0, 0, 0, nullptr);
     }},
    {"CardGetChallenge",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardGetChallenge(record, nullptr, nullptr);
     }},
    {"CardAuthenticateChallenge",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardAuthenticateChallenge(record, nullptr, 0, nullptr);
     }},
    {"CardUnblockPin",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardUnblockPin(record, nullptr, nullptr, 0, nullptr, 0, 0, 0);
     }},
    {"CardChangeAuthenticator",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardChangeAuthenticator(record, nullptr, nullptr, 0, nullptr, 0, 0, 0,
                                                 nullptr);
     }},
    {"CardCreateDirectory",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardCreateDirectory(record, nullptr, UserCreateDeleteDirAc);
     }},
    {"CardDeleteDirectory",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardDeleteDirectory(record, nullptr);
     }},
    {"CardCreateFile",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardCreateFile(record, nullptr, nullptr, 0, EveryoneReadUserWriteAc);
     }},
    {"CardWriteFile",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardWriteFile(record, nullptr, nullptr, 0, nullptr, 0);
     }},
    {"CardDeleteFile",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardDeleteFile(record, nullptr, nullptr, 0);
     }},
    {"CardGetChallengeEx",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardGetChallengeEx(record, 1, nullptr, nullptr, 0);
     }},
    {"CardChangeAuthenticatorEx",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardChangeAuthenticatorEx(record, 0, 1, nullptr, 0, 1, nullptr, 0, 0,
                                                   nullptr);
     }},
    {"CardDeauthenticateEx",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardDeauthenticateEx(record, 2, 0);
     }},
    {"CardSetContainerProperty",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardSetContainerProperty(record, 0, nullptr, nullptr, 0, 0);
     }},
    {"MDImportSessionKey",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnMDImportSessionKey(record, nullptr, nullptr, nullptr, nullptr, 0);
     }},
    {"MDEncryptData",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnMDEncryptData(record, 0, nullptr, nullptr, 0, 0, nullptr, nullptr);
     }},
    {"CardImportSessionKey",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardImportSessionKey(record, 0, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, 0, 0);
     }},
    {"CardGetSharedKeyHandle",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardGetSharedKeyHandle(record, nullptr, 0, nullptr, nullptr, nullptr);
     }},
    {"CardGetAlgorithmProperty",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardGetAlgorithmProperty(record, nullptr, nullptr, nullptr, 0, nullptr, 0);
     }},
    {"CardGetKeyProperty",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardGetKeyProperty(record, 0, nullptr, nullptr, 0, nullptr, 0);
     }},
    {"CardSetKeyProperty",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardSetKeyProperty(record, 0, nullptr, nullptr, 0, 0);
     }},
    {"CardDestroyKey",
     [](const CARD_DATA& table, PCARD_DATA record) { return table.pfnCardDestroyKey(record, 0); }},
    {"CardProcessEncryptedData",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardProcessEncryptedData(record, 0, nullptr, nullptr, 0, nullptr, 0,
                                                  nullptr, 0);
     }},
    {"CardCreateContainerEx",
     [](const CARD_DATA& table, PCARD_DATA record) {
         return table.pfnCardCreateContainerEx(record, 0, 0, 0, 0, nullptr, 0);
     }},
};

}  // namespace boundary
