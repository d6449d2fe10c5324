// The entry points of the table and the export, under the platform's published names and with its
// signatures (Smart Card Minidriver specification 7.07, section 4). Plain declarations: every
// folder that holds entry points may include them. They let exceptions pass; the function table
// holds each of them behind the guard of frame/boundary.h.
#pragma once

#include "platform/minidriver.h"

/// The export. @return a status; the function table is filled on success only
extern "C" DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);

namespace KelmoraID {

DWORD WINAPI CardDeleteContext(PCARD_DATA pCardData);
DWORD WINAPI CardQueryCapabilities(PCARD_DATA pCardData, PCARD_CAPABILITIES pCardCapabilities);
DWORD WINAPI CardDeleteContainer(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwReserved);
DWORD WINAPI CardCreateContainer(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                 DWORD dwKeySpec, DWORD dwKeySize, PBYTE pbKeyData);
DWORD WINAPI CardGetContainerInfo(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                  PCONTAINER_INFO pContainerInfo);
DWORD WINAPI CardAuthenticatePin(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbPin, DWORD cbPin,
                                 PDWORD pcAttemptsRemaining);
DWORD WINAPI CardGetChallenge(PCARD_DATA pCardData, PBYTE* ppbChallengeData,
                              PDWORD pcbChallengeData);
DWORD WINAPI CardAuthenticateChallenge(PCARD_DATA pCardData, PBYTE pbResponseData,
                                       DWORD cbResponseData, PDWORD pcAttemptsRemaining);
DWORD WINAPI CardUnblockPin(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbAuthenticationData,
                            DWORD cbAuthenticationData, PBYTE pbNewPinData, DWORD cbNewPinData,
                            DWORD cRetryCount, DWORD dwFlags);
DWORD WINAPI CardChangeAuthenticator(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                     PBYTE pbCurrentAuthenticator, DWORD cbCurrentAuthenticator,
                                     PBYTE pbNewAuthenticator, DWORD cbNewAuthenticator,
                                     DWORD cRetryCount, DWORD dwFlags, PDWORD pcAttemptsRemaining);
DWORD WINAPI CardDeauthenticate(PCARD_DATA pCardData, LPWSTR pwszUserId, DWORD dwFlags);
DWORD WINAPI CardCreateDirectory(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                 CARD_DIRECTORY_ACCESS_CONDITION AccessCondition);
DWORD WINAPI CardDeleteDirectory(PCARD_DATA pCardData, LPSTR pszDirectoryName);
DWORD WINAPI CardCreateFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                            DWORD cbInitialCreationSize,
                            CARD_FILE_ACCESS_CONDITION AccessCondition);
DWORD WINAPI CardReadFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                          DWORD dwFlags, PBYTE* ppbData, PDWORD pcbData);
DWORD WINAPI CardWriteFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                           DWORD dwFlags, PBYTE pbData, DWORD cbData);
DWORD WINAPI CardDeleteFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                            DWORD dwFlags);
DWORD WINAPI CardEnumFiles(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR* pmszFileNames,
                           LPDWORD pdwcbFileName, DWORD dwFlags);
DWORD WINAPI CardGetFileInfo(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                             PCARD_FILE_INFO pCardFileInfo);
DWORD WINAPI CardQueryFreeSpace(PCARD_DATA pCardData, DWORD dwFlags,
                                PCARD_FREE_SPACE_INFO pCardFreeSpaceInfo);
DWORD WINAPI CardQueryKeySizes(PCARD_DATA pCardData, DWORD dwKeySpec, DWORD dwFlags,
                               PCARD_KEY_SIZES pKeySizes);
DWORD WINAPI CardSignData(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo);
DWORD WINAPI CardRSADecrypt(PCARD_DATA pCardData, PCARD_RSA_DECRYPT_INFO pInfo);
DWORD WINAPI CardConstructDHAgreement(PCARD_DATA pCardData, PCARD_DH_AGREEMENT_INFO pAgreementInfo);
DWORD WINAPI CardDeriveKey(PCARD_DATA pCardData, PCARD_DERIVE_KEY pAgreementInfo);
DWORD WINAPI CardDestroyDHAgreement(PCARD_DATA pCardData, BYTE bSecretAgreementIndex,
                                    DWORD dwFlags);
DWORD WINAPI CspGetDHAgreement(PCARD_DATA pCardData, PVOID hSecretAgreement,
                               BYTE* pbSecretAgreementIndex, DWORD dwFlags);
DWORD WINAPI CardGetChallengeEx(PCARD_DATA pCardData, PIN_ID PinId, PBYTE* ppbChallengeData,
                                PDWORD pcbChallengeData, DWORD dwFlags);
DWORD WINAPI CardAuthenticateEx(PCARD_DATA pCardData, PIN_ID PinId, DWORD dwFlags, PBYTE pbPinData,
                                DWORD cbPinData, PBYTE* ppbSessionPin, PDWORD pcbSessionPin,
                                PDWORD pcAttemptsRemaining);
DWORD WINAPI CardChangeAuthenticatorEx(PCARD_DATA pCardData, DWORD dwFlags,
                                       PIN_ID dwAuthenticatingPinId, PBYTE pbAuthenticatingPinData,
                                       DWORD cbAuthenticatingPinData, PIN_ID dwTargetPinId,
                                       PBYTE pbTargetData, DWORD cbTargetData, DWORD cRetryCount,
                                       PDWORD pcAttemptsRemaining);
DWORD WINAPI CardDeauthenticateEx(PCARD_DATA pCardData, PIN_SET PinId, DWORD dwFlags);
DWORD WINAPI CardGetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex,
                                      LPCWSTR wszProperty, PBYTE pbData, DWORD cbData,
                                      PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardSetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex,
                                      LPCWSTR wszProperty, PBYTE pbData, DWORD cbDataLen,
                                      DWORD dwFlags);
DWORD WINAPI CardGetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbData,
                             PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardSetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData,
                             DWORD cbDataLen, DWORD dwFlags);
DWORD WINAPI CspUnpadData(PCARD_RSA_DECRYPT_INFO pRSADecryptInfo, DWORD* pcbUnpaddedData,
                          PBYTE* ppbUnpaddedData);
DWORD WINAPI MDImportSessionKey(PCARD_DATA pCardData, LPCWSTR pwszBlobType, LPCWSTR pwszAlgId,
                                PCARD_KEY_HANDLE phKey, PBYTE pbInput, DWORD cbInput);
DWORD WINAPI MDEncryptData(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszSecureFunction,
                           PBYTE pbInput, DWORD cbInput, DWORD dwFlags,
                           PCARD_ENCRYPTED_DATA* ppEncryptedData, PDWORD pcEncryptedData);
DWORD WINAPI CardImportSessionKey(PCARD_DATA pCardData, BYTE bContainerIndex, LPVOID pPaddingInfo,
                                  LPCWSTR pwszBlobType, LPCWSTR pwszAlgId, PCARD_KEY_HANDLE phKey,
                                  PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
DWORD WINAPI CardGetSharedKeyHandle(PCARD_DATA pCardData, PBYTE pbInput, DWORD cbInput,
                                    PBYTE* ppbOutput, PDWORD pcbOutput, PCARD_KEY_HANDLE phKey);
DWORD WINAPI CardGetAlgorithmProperty(PCARD_DATA pCardData, LPCWSTR pwszAlgId, LPCWSTR pwszProperty,
                                      PBYTE pbData, DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardGetKeyProperty(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszProperty,
                                PBYTE pbData, DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardSetKeyProperty(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszProperty,
                                PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
DWORD WINAPI CardDestroyKey(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey);
DWORD WINAPI CardProcessEncryptedData(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey,
                                      LPCWSTR pwszSecureFunction,
                                      PCARD_ENCRYPTED_DATA pEncryptedData, DWORD cEncryptedData,
                                      PBYTE pbOutput, DWORD cbOutput, PDWORD pdwOutputLen,
                                      DWORD dwFlags);
DWORD WINAPI CardCreateContainerEx(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                   DWORD dwKeySpec, DWORD dwKeySize, PBYTE pbKeyData, PIN_ID PinId);
DWORD WINAPI I_CardConvertFileNameToAnsi(PCARD_DATA pCardData, LPWSTR wszUnicodeName,
                                         LPSTR* ppszAnsiName);

}  // namespace KelmoraID
