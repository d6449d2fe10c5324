// The operations that this system does not offer: the card is read-only to it, so most of the table
// is a set of small refusals. Each writes its entry line, and only that.
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

// What the card does not offer through this system. A record without a context handle is refused as
// a bad argument; one that is no record at all likewise.
DWORD notOffered(const char* scope, const CARD_DATA* pCardData) {
    logEntry(scope);
    if (pCardData == nullptr || pCardData->hSCardCtx == 0) return SCARD_E_INVALID_PARAMETER;
    return SCARD_E_UNSUPPORTED_FEATURE;
}

// The same where the arguments are not looked at.
DWORD notOffered(const char* scope) {
    logEntry(scope);
    return SCARD_E_UNSUPPORTED_FEATURE;
}

// What this system does not provide at all: another status than for what a card lacks.
DWORD notProvided(const char* scope) {
    logEntry(scope);
    return SCARD_E_UNEXPECTED;
}

}  // namespace

// --- Not offered; without a context handle a bad argument

DWORD WINAPI CardDeleteContainer(PCARD_DATA pCardData, BYTE, DWORD) {
    return notOffered("CardDeleteContainer", pCardData);
}

DWORD WINAPI CardCreateContainer(PCARD_DATA pCardData, BYTE, DWORD, DWORD, DWORD, PBYTE) {
    return notOffered("CardCreateContainer", pCardData);
}

DWORD WINAPI CardUnblockPin(PCARD_DATA pCardData, LPWSTR, PBYTE, DWORD, PBYTE, DWORD, DWORD,
                            DWORD) {
    return notOffered("CardUnblockPin", pCardData);
}

DWORD WINAPI CardChangeAuthenticator(PCARD_DATA pCardData, LPWSTR, PBYTE, DWORD, PBYTE, DWORD,
                                     DWORD, DWORD, PDWORD) {
    return notOffered("CardChangeAuthenticator", pCardData);
}

DWORD WINAPI CardDeauthenticate(PCARD_DATA pCardData, LPWSTR, DWORD) {
    return notOffered("CardDeauthenticate", pCardData);
}

DWORD WINAPI CardCreateDirectory(PCARD_DATA pCardData, LPSTR, CARD_DIRECTORY_ACCESS_CONDITION) {
    return notOffered("CardCreateDirectory", pCardData);
}

DWORD WINAPI CardDeleteDirectory(PCARD_DATA pCardData, LPSTR) {
    return notOffered("CardDeleteDirectory", pCardData);
}

DWORD WINAPI CardCreateFile(PCARD_DATA pCardData, LPSTR, LPSTR, DWORD, CARD_FILE_ACCESS_CONDITION) {
    return notOffered("CardCreateFile", pCardData);
}

DWORD WINAPI CardWriteFile(PCARD_DATA pCardData, LPSTR, LPSTR, DWORD, PBYTE, DWORD) {
    return notOffered("CardWriteFile", pCardData);
}

DWORD WINAPI CardDeleteFile(PCARD_DATA pCardData, LPSTR, LPSTR, DWORD) {
    return notOffered("CardDeleteFile", pCardData);
}

DWORD WINAPI CspGetDHAgreement(PCARD_DATA pCardData, PVOID, BYTE*, DWORD) {
    return notOffered("CspGetDHAgreement", pCardData);
}

DWORD WINAPI CardDeauthenticateEx(PCARD_DATA pCardData, PIN_SET, DWORD) {
    return notOffered("CardDeauthenticateEx", pCardData);
}

DWORD WINAPI CardSetContainerProperty(PCARD_DATA pCardData, BYTE, LPCWSTR, PBYTE, DWORD, DWORD) {
    return notOffered("CardSetContainerProperty", pCardData);
}

DWORD WINAPI CardImportSessionKey(PCARD_DATA pCardData, BYTE, LPVOID, LPCWSTR, LPCWSTR,
                                  PCARD_KEY_HANDLE, PBYTE, DWORD, DWORD) {
    return notOffered("CardImportSessionKey", pCardData);
}

DWORD WINAPI CardCreateContainerEx(PCARD_DATA pCardData, BYTE, DWORD, DWORD, DWORD, PBYTE, PIN_ID) {
    return notOffered("CardCreateContainerEx", pCardData);
}

// --- Not offered, whatever the arguments

DWORD WINAPI CardGetChallenge(PCARD_DATA, PBYTE*, PDWORD) {
    return notOffered("CardGetChallenge");
}

DWORD WINAPI CardAuthenticateChallenge(PCARD_DATA, PBYTE, DWORD, PDWORD) {
    return notOffered("CardAuthenticateChallenge");
}

DWORD WINAPI CardGetChallengeEx(PCARD_DATA, PIN_ID, PBYTE*, PDWORD, DWORD) {
    return notOffered("CardGetChallengeEx");
}

DWORD WINAPI CardChangeAuthenticatorEx(PCARD_DATA, DWORD, PIN_ID, PBYTE, DWORD, PIN_ID, PBYTE,
                                       DWORD, DWORD, PDWORD) {
    return notOffered("CardChangeAuthenticatorEx");
}

// --- Not provided, whatever the arguments

DWORD WINAPI CspUnpadData(PCARD_RSA_DECRYPT_INFO, DWORD*, PBYTE*) {
    return notProvided("CspUnpadData");
}

DWORD WINAPI MDImportSessionKey(PCARD_DATA, LPCWSTR, LPCWSTR, PCARD_KEY_HANDLE, PBYTE, DWORD) {
    return notProvided("MDImportSessionKey");
}

DWORD WINAPI MDEncryptData(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD,
                           PCARD_ENCRYPTED_DATA*, PDWORD) {
    return notProvided("MDEncryptData");
}

DWORD WINAPI CardGetSharedKeyHandle(PCARD_DATA, PBYTE, DWORD, PBYTE*, PDWORD, PCARD_KEY_HANDLE) {
    return notProvided("CardGetSharedKeyHandle");
}

DWORD WINAPI CardGetAlgorithmProperty(PCARD_DATA, LPCWSTR, LPCWSTR, PBYTE, DWORD, PDWORD, DWORD) {
    return notProvided("CardGetAlgorithmProperty");
}

DWORD WINAPI CardGetKeyProperty(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, PDWORD, DWORD) {
    return notProvided("CardGetKeyProperty");
}

DWORD WINAPI CardSetKeyProperty(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD) {
    return notProvided("CardSetKeyProperty");
}

DWORD WINAPI CardDestroyKey(PCARD_DATA, CARD_KEY_HANDLE) {
    return notProvided("CardDestroyKey");
}

DWORD WINAPI CardProcessEncryptedData(PCARD_DATA, CARD_KEY_HANDLE, LPCWSTR, PCARD_ENCRYPTED_DATA,
                                      DWORD, PBYTE, DWORD, PDWORD, DWORD) {
    return notProvided("CardProcessEncryptedData");
}

DWORD WINAPI I_CardConvertFileNameToAnsi(PCARD_DATA, LPWSTR, LPSTR*) {
    return notProvided("I_CardConvertFileNameToAnsi");
}

}  // namespace KelmoraID
