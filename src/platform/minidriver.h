// The platform's records, enumerations, constants and entry-point types, under their published
// names: the Smart Card Minidriver specification 7.07, version 7 of the interface. The header of
// that kind that cross compilers bring stops at version 5, so it is not included anywhere.
//
// Field order is memory order, with natural alignment and no packing. A record that holds pointers
// has the size of the build.
#pragma once

#include <cstddef>

#include "platform/win32.h"

using PIN_ID = DWORD;
using PPIN_ID = DWORD*;
using PIN_SET = DWORD;
using PPIN_SET = DWORD*;
using CARD_KEY_HANDLE = ULONG_PTR;
using PCARD_KEY_HANDLE = ULONG_PTR*;

// --- Enumerations -------------------------------------------------------------------------------

enum SECRET_TYPE : DWORD {
    AlphaNumericPinType = 0,
    ExternalPinType = 1,
    ChallengeResponsePinType = 2,
    EmptyPinType = 3,
};

enum SECRET_PURPOSE : DWORD {
    AuthenticationPin = 0,
    DigitalSignaturePin = 1,
    EncryptionPin = 2,
    NonRepudiationPin = 3,
    AdministratorPin = 4,
    PrimaryCardPin = 5,
    UnblockOnlyPin = 6,
};

enum PIN_CACHE_POLICY_TYPE : DWORD {
    PinCacheNormal = 0,
    PinCacheTimed = 1,
    PinCacheNone = 2,
    PinCacheAlwaysPrompt = 3,
};

enum CARD_FILE_ACCESS_CONDITION : DWORD {
    InvalidAc = 0,
    EveryoneReadUserWriteAc = 1,
    UserWriteExecuteAc = 2,
    EveryoneReadAdminWriteAc = 3,
    UnknownAc = 4,
    UserReadWriteAc = 5,
    AdminReadWriteAc = 6,
};

enum CARD_DIRECTORY_ACCESS_CONDITION : DWORD {
    InvalidDirAc = 0,
    UserCreateDeleteDirAc = 1,
    AdminCreateDeleteDirAc = 2,
};

// --- Constants ----------------------------------------------------------------------------------

inline constexpr DWORD CARD_DATA_VERSION_SEVEN = 7;

inline constexpr DWORD CARD_BUFFER_SIZE_ONLY = 0x20000000;
inline constexpr DWORD CARD_PADDING_INFO_PRESENT = 0x40000000;
inline constexpr DWORD CARD_RETURN_KEY_HANDLE = 0x01000000;
inline constexpr DWORD CARD_PIN_SILENT_CONTEXT = 0x00000040;
inline constexpr DWORD CARD_AUTHENTICATE_GENERATE_SESSION_PIN = 0x10000000;
inline constexpr DWORD CARD_AUTHENTICATE_SESSION_PIN = 0x20000000;
inline constexpr DWORD PIN_INFO_REQUIRE_SECURE_ENTRY = 1;

inline constexpr DWORD CARD_PADDING_NONE = 1;
inline constexpr DWORD CARD_PADDING_PKCS1 = 2;
inline constexpr DWORD CARD_PADDING_PSS = 4;
inline constexpr DWORD CARD_PADDING_OAEP = 8;

#ifndef AT_KEYEXCHANGE
inline constexpr DWORD AT_KEYEXCHANGE = 1;
inline constexpr DWORD AT_SIGNATURE = 2;
#endif
inline constexpr DWORD AT_ECDSA_P256 = 3;
inline constexpr DWORD AT_ECDSA_P384 = 4;
inline constexpr DWORD AT_ECDSA_P521 = 5;
inline constexpr DWORD AT_ECDHE_P256 = 6;
inline constexpr DWORD AT_ECDHE_P384 = 7;
inline constexpr DWORD AT_ECDHE_P521 = 8;

inline constexpr BYTE CONTAINER_MAP_VALID_CONTAINER = 1;
inline constexpr BYTE CONTAINER_MAP_DEFAULT_CONTAINER = 2;

// --- Records ------------------------------------------------------------------------------------

struct CARD_DATA;
using PCARD_DATA = CARD_DATA*;

struct CONTAINER_MAP_RECORD {
    WCHAR wszGuid[40];
    BYTE bFlags;
    BYTE bReserved;
    WORD wSigKeySizeBits;
    WORD wKeyExchangeKeySizeBits;
};

struct CARD_CAPABILITIES {
    DWORD dwVersion;
    BOOL fCertificateCompression;
    BOOL fKeyGen;
};
using PCARD_CAPABILITIES = CARD_CAPABILITIES*;

struct CARD_FREE_SPACE_INFO {
    DWORD dwVersion;
    DWORD dwBytesAvailable;
    DWORD dwKeyContainersAvailable;
    DWORD dwMaxKeyContainers;
};
using PCARD_FREE_SPACE_INFO = CARD_FREE_SPACE_INFO*;

struct CARD_FILE_INFO {
    DWORD dwVersion;
    DWORD cbFileSize;
    CARD_FILE_ACCESS_CONDITION AccessCondition;
};
using PCARD_FILE_INFO = CARD_FILE_INFO*;

struct CARD_KEY_SIZES {
    DWORD dwVersion;
    DWORD dwMinimumBitlen;
    DWORD dwDefaultBitlen;
    DWORD dwMaximumBitlen;
    DWORD dwIncrementalBitlen;
};
using PCARD_KEY_SIZES = CARD_KEY_SIZES*;

struct PIN_CACHE_POLICY {
    DWORD dwVersion;
    PIN_CACHE_POLICY_TYPE PinCachePolicyType;
    DWORD dwPinCachePolicyInfo;
};

struct PIN_INFO {
    DWORD dwVersion;
    SECRET_TYPE PinType;
    SECRET_PURPOSE PinPurpose;
    PIN_SET dwChangePermission;
    PIN_SET dwUnblockPermission;
    PIN_CACHE_POLICY PinCachePolicy;
    DWORD dwFlags;
};
using PPIN_INFO = PIN_INFO*;

struct CONTAINER_INFO {
    DWORD dwVersion;
    DWORD dwReserved;
    DWORD cbSigPublicKey;
    PBYTE pbSigPublicKey;
    DWORD cbKeyExPublicKey;
    PBYTE pbKeyExPublicKey;
};
using PCONTAINER_INFO = CONTAINER_INFO*;

struct CARD_RSA_DECRYPT_INFO {
    DWORD dwVersion;
    BYTE bContainerIndex;
    DWORD dwKeySpec;
    PBYTE pbData;
    DWORD cbData;
    // From version 2 of the record.
    LPVOID pPaddingInfo;
    DWORD dwPaddingType;
};
using PCARD_RSA_DECRYPT_INFO = CARD_RSA_DECRYPT_INFO*;

struct CARD_SIGNING_INFO {
    DWORD dwVersion;
    BYTE bContainerIndex;
    DWORD dwKeySpec;
    DWORD dwSigningFlags;
    ALG_ID aiHashAlg;
    PBYTE pbData;
    DWORD cbData;
    PBYTE pbSignedData;
    DWORD cbSignedData;
    // From version 2 of the record.
    LPVOID pPaddingInfo;
    DWORD dwPaddingType;
};
using PCARD_SIGNING_INFO = CARD_SIGNING_INFO*;

struct CARD_DH_AGREEMENT_INFO {
    DWORD dwVersion;
    BYTE bContainerIndex;
    DWORD dwFlags;
    DWORD dwPublicKey;
    PBYTE pbPublicKey;
    PBYTE pbReserved;
    DWORD cbReserved;
    BYTE bSecretAgreementIndex;
};
using PCARD_DH_AGREEMENT_INFO = CARD_DH_AGREEMENT_INFO*;

struct CARD_DERIVE_KEY {
    DWORD dwVersion;
    DWORD dwFlags;
    LPWSTR pwszKDF;
    BYTE bSecretAgreementIndex;
    PVOID pParameterList;
    PBYTE pbDerivedKey;
    DWORD cbDerivedKey;
    LPWSTR pwszAlgId;
    DWORD dwKeyLen;
    CARD_KEY_HANDLE hKey;
};
using PCARD_DERIVE_KEY = CARD_DERIVE_KEY*;

struct CARD_ENCRYPTED_DATA {
    PBYTE pbEncryptedData;
    DWORD cbEncryptedData;
};
using PCARD_ENCRYPTED_DATA = CARD_ENCRYPTED_DATA*;

struct CARD_CACHE_FILE_FORMAT {
    BYTE bVersion;
    BYTE bPinsFreshness;
    WORD wContainersFreshness;
    WORD wFilesFreshness;
};

// --- Callbacks of the platform ------------------------------------------------------------------

using PFN_CSP_ALLOC = LPVOID(WINAPI*)(SIZE_T Size);
using PFN_CSP_REALLOC = LPVOID(WINAPI*)(LPVOID Address, SIZE_T Size);
using PFN_CSP_FREE = void(WINAPI*)(LPVOID Address);
using PFN_CSP_CACHE_ADD_FILE = DWORD(WINAPI*)(PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags,
                                              PBYTE pbData, DWORD cbData);
using PFN_CSP_CACHE_LOOKUP_FILE = DWORD(WINAPI*)(PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags,
                                                 PBYTE* ppbData, PDWORD pcbData);
using PFN_CSP_CACHE_DELETE_FILE = DWORD(WINAPI*)(PVOID pvCacheContext, LPWSTR wszTag,
                                                 DWORD dwFlags);
using PFN_CSP_PAD_DATA = DWORD(WINAPI*)(PCARD_SIGNING_INFO pSigningInfo, DWORD cbMaxWidth,
                                        DWORD* pcbPaddedBuffer, PBYTE* ppbPaddedBuffer);

// --- Entry points -------------------------------------------------------------------------------

using PFN_CARD_ACQUIRE_CONTEXT = DWORD(WINAPI*)(PCARD_DATA pCardData, DWORD dwFlags);
using PFN_CARD_DELETE_CONTEXT = DWORD(WINAPI*)(PCARD_DATA pCardData);
using PFN_CARD_QUERY_CAPABILITIES = DWORD(WINAPI*)(PCARD_DATA pCardData,
                                                   PCARD_CAPABILITIES pCardCapabilities);
using PFN_CARD_DELETE_CONTAINER = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                 DWORD dwReserved);
using PFN_CARD_CREATE_CONTAINER = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                 DWORD dwFlags, DWORD dwKeySpec, DWORD dwKeySize,
                                                 PBYTE pbKeyData);
using PFN_CARD_GET_CONTAINER_INFO = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                   DWORD dwFlags, PCONTAINER_INFO pContainerInfo);
using PFN_CARD_AUTHENTICATE_PIN = DWORD(WINAPI*)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                                 PBYTE pbPin, DWORD cbPin,
                                                 PDWORD pcAttemptsRemaining);
using PFN_CARD_GET_CHALLENGE = DWORD(WINAPI*)(PCARD_DATA pCardData, PBYTE* ppbChallengeData,
                                              PDWORD pcbChallengeData);
using PFN_CARD_AUTHENTICATE_CHALLENGE = DWORD(WINAPI*)(PCARD_DATA pCardData, PBYTE pbResponseData,
                                                       DWORD cbResponseData,
                                                       PDWORD pcAttemptsRemaining);
using PFN_CARD_UNBLOCK_PIN = DWORD(WINAPI*)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                            PBYTE pbAuthenticationData, DWORD cbAuthenticationData,
                                            PBYTE pbNewPinData, DWORD cbNewPinData,
                                            DWORD cRetryCount, DWORD dwFlags);
using PFN_CARD_CHANGE_AUTHENTICATOR = DWORD(WINAPI*)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                                     PBYTE pbCurrentAuthenticator,
                                                     DWORD cbCurrentAuthenticator,
                                                     PBYTE pbNewAuthenticator,
                                                     DWORD cbNewAuthenticator, DWORD cRetryCount,
                                                     DWORD dwFlags, PDWORD pcAttemptsRemaining);
using PFN_CARD_DEAUTHENTICATE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                               DWORD dwFlags);
using PFN_CARD_CREATE_DIRECTORY = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                                 CARD_DIRECTORY_ACCESS_CONDITION AccessCondition);
using PFN_CARD_DELETE_DIRECTORY = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName);
using PFN_CARD_CREATE_FILE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                            LPSTR pszFileName, DWORD cbInitialCreationSize,
                                            CARD_FILE_ACCESS_CONDITION AccessCondition);
using PFN_CARD_READ_FILE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                          LPSTR pszFileName, DWORD dwFlags, PBYTE* ppbData,
                                          PDWORD pcbData);
using PFN_CARD_WRITE_FILE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                           LPSTR pszFileName, DWORD dwFlags, PBYTE pbData,
                                           DWORD cbData);
using PFN_CARD_DELETE_FILE = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                            LPSTR pszFileName, DWORD dwFlags);
using PFN_CARD_ENUM_FILES = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                           LPSTR* pmszFileNames, LPDWORD pdwcbFileName,
                                           DWORD dwFlags);
using PFN_CARD_GET_FILE_INFO = DWORD(WINAPI*)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                              LPSTR pszFileName, PCARD_FILE_INFO pCardFileInfo);
using PFN_CARD_QUERY_FREE_SPACE = DWORD(WINAPI*)(PCARD_DATA pCardData, DWORD dwFlags,
                                                 PCARD_FREE_SPACE_INFO pCardFreeSpaceInfo);
using PFN_CARD_QUERY_KEY_SIZES = DWORD(WINAPI*)(PCARD_DATA pCardData, DWORD dwKeySpec,
                                                DWORD dwFlags, PCARD_KEY_SIZES pKeySizes);
using PFN_CARD_SIGN_DATA = DWORD(WINAPI*)(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo);
using PFN_CARD_RSA_DECRYPT = DWORD(WINAPI*)(PCARD_DATA pCardData, PCARD_RSA_DECRYPT_INFO pInfo);
using PFN_CARD_CONSTRUCT_DH_AGREEMENT = DWORD(WINAPI*)(PCARD_DATA pCardData,
                                                       PCARD_DH_AGREEMENT_INFO pAgreementInfo);
using PFN_CARD_DERIVE_KEY = DWORD(WINAPI*)(PCARD_DATA pCardData, PCARD_DERIVE_KEY pAgreementInfo);
using PFN_CARD_DESTROY_DH_AGREEMENT = DWORD(WINAPI*)(PCARD_DATA pCardData,
                                                     BYTE bSecretAgreementIndex, DWORD dwFlags);
using PFN_CSP_GET_DH_AGREEMENT = DWORD(WINAPI*)(PCARD_DATA pCardData, PVOID hSecretAgreement,
                                                BYTE* pbSecretAgreementIndex, DWORD dwFlags);
using PFN_CARD_GET_CHALLENGE_EX = DWORD(WINAPI*)(PCARD_DATA pCardData, PIN_ID PinId,
                                                 PBYTE* ppbChallengeData, PDWORD pcbChallengeData,
                                                 DWORD dwFlags);
using PFN_CARD_AUTHENTICATE_EX = DWORD(WINAPI*)(PCARD_DATA pCardData, PIN_ID PinId, DWORD dwFlags,
                                                PBYTE pbPinData, DWORD cbPinData,
                                                PBYTE* ppbSessionPin, PDWORD pcbSessionPin,
                                                PDWORD pcAttemptsRemaining);
using PFN_CARD_CHANGE_AUTHENTICATOR_EX = DWORD(WINAPI*)(
    PCARD_DATA pCardData, DWORD dwFlags, PIN_ID dwAuthenticatingPinId,
    PBYTE pbAuthenticatingPinData, DWORD cbAuthenticatingPinData, PIN_ID dwTargetPinId,
    PBYTE pbTargetData, DWORD cbTargetData, DWORD cRetryCount, PDWORD pcAttemptsRemaining);
using PFN_CARD_DEAUTHENTICATE_EX = DWORD(WINAPI*)(PCARD_DATA pCardData, PIN_SET PinId,
                                                  DWORD dwFlags);
using PFN_CARD_GET_CONTAINER_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                       LPCWSTR wszProperty, PBYTE pbData,
                                                       DWORD cbData, PDWORD pdwDataLen,
                                                       DWORD dwFlags);
using PFN_CARD_SET_CONTAINER_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                       LPCWSTR wszProperty, PBYTE pbData,
                                                       DWORD cbDataLen, DWORD dwFlags);
using PFN_CARD_GET_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, LPCWSTR wszProperty,
                                             PBYTE pbData, DWORD cbData, PDWORD pdwDataLen,
                                             DWORD dwFlags);
using PFN_CARD_SET_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, LPCWSTR wszProperty,
                                             PBYTE pbData, DWORD cbDataLen, DWORD dwFlags);
using PFN_CSP_UNPAD_DATA = DWORD(WINAPI*)(PCARD_RSA_DECRYPT_INFO pRSADecryptInfo,
                                          DWORD* pcbUnpaddedData, PBYTE* ppbUnpaddedData);
using PFN_MD_IMPORT_SESSION_KEY = DWORD(WINAPI*)(PCARD_DATA pCardData, LPCWSTR pwszBlobType,
                                                 LPCWSTR pwszAlgId, PCARD_KEY_HANDLE phKey,
                                                 PBYTE pbInput, DWORD cbInput);
using PFN_MD_ENCRYPT_DATA = DWORD(WINAPI*)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey,
                                           LPCWSTR pwszSecureFunction, PBYTE pbInput, DWORD cbInput,
                                           DWORD dwFlags, PCARD_ENCRYPTED_DATA* ppEncryptedData,
                                           PDWORD pcEncryptedData);
using PFN_CARD_IMPORT_SESSION_KEY = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                   LPVOID pPaddingInfo, LPCWSTR pwszBlobType,
                                                   LPCWSTR pwszAlgId, PCARD_KEY_HANDLE phKey,
                                                   PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
using PFN_CARD_GET_SHARED_KEY_HANDLE = DWORD(WINAPI*)(PCARD_DATA pCardData, PBYTE pbInput,
                                                      DWORD cbInput, PBYTE* ppbOutput,
                                                      PDWORD pcbOutput, PCARD_KEY_HANDLE phKey);
using PFN_CARD_GET_ALGORITHM_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, LPCWSTR pwszAlgId,
                                                       LPCWSTR pwszProperty, PBYTE pbData,
                                                       DWORD cbData, PDWORD pdwDataLen,
                                                       DWORD dwFlags);
using PFN_CARD_GET_KEY_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey,
                                                 LPCWSTR pwszProperty, PBYTE pbData, DWORD cbData,
                                                 PDWORD pdwDataLen, DWORD dwFlags);
using PFN_CARD_SET_KEY_PROPERTY = DWORD(WINAPI*)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey,
                                                 LPCWSTR pwszProperty, PBYTE pbInput, DWORD cbInput,
                                                 DWORD dwFlags);
using PFN_CARD_DESTROY_KEY = DWORD(WINAPI*)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey);
using PFN_CARD_PROCESS_ENCRYPTED_DATA = DWORD(WINAPI*)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey,
                                                       LPCWSTR pwszSecureFunction,
                                                       PCARD_ENCRYPTED_DATA pEncryptedData,
                                                       DWORD cEncryptedData, PBYTE pbOutput,
                                                       DWORD cbOutput, PDWORD pdwOutputLen,
                                                       DWORD dwFlags);
using PFN_CARD_CREATE_CONTAINER_EX = DWORD(WINAPI*)(PCARD_DATA pCardData, BYTE bContainerIndex,
                                                    DWORD dwFlags, DWORD dwKeySpec, DWORD dwKeySize,
                                                    PBYTE pbKeyData, PIN_ID PinId);

// --- The record of one card ---------------------------------------------------------------------

struct CARD_DATA {
    // From the platform.
    DWORD dwVersion;
    PBYTE pbAtr;
    DWORD cbAtr;
    LPWSTR pwszCardName;
    PFN_CSP_ALLOC pfnCspAlloc;
    PFN_CSP_REALLOC pfnCspReAlloc;
    PFN_CSP_FREE pfnCspFree;
    PFN_CSP_CACHE_ADD_FILE pfnCspCacheAddFile;
    PFN_CSP_CACHE_LOOKUP_FILE pfnCspCacheLookupFile;
    PFN_CSP_CACHE_DELETE_FILE pfnCspCacheDeleteFile;
    PVOID pvCacheContext;
    PFN_CSP_PAD_DATA pfnCspPadData;
    SCARDCONTEXT hSCardCtx;
    SCARDHANDLE hScard;
    // The minidriver's own.
    PVOID pvVendorSpecific;
    // Filled by CardAcquireContext.
    PFN_CARD_DELETE_CONTEXT pfnCardDeleteContext;
    PFN_CARD_QUERY_CAPABILITIES pfnCardQueryCapabilities;
    PFN_CARD_DELETE_CONTAINER pfnCardDeleteContainer;
    PFN_CARD_CREATE_CONTAINER pfnCardCreateContainer;
    PFN_CARD_GET_CONTAINER_INFO pfnCardGetContainerInfo;
    PFN_CARD_AUTHENTICATE_PIN pfnCardAuthenticatePin;
    PFN_CARD_GET_CHALLENGE pfnCardGetChallenge;
    PFN_CARD_AUTHENTICATE_CHALLENGE pfnCardAuthenticateChallenge;
    PFN_CARD_UNBLOCK_PIN pfnCardUnblockPin;
    PFN_CARD_CHANGE_AUTHENTICATOR pfnCardChangeAuthenticator;
    PFN_CARD_DEAUTHENTICATE pfnCardDeauthenticate;
    PFN_CARD_CREATE_DIRECTORY pfnCardCreateDirectory;
    PFN_CARD_DELETE_DIRECTORY pfnCardDeleteDirectory;
    LPVOID pvUnused3;
    LPVOID pvUnused4;
    PFN_CARD_CREATE_FILE pfnCardCreateFile;
    PFN_CARD_READ_FILE pfnCardReadFile;
    PFN_CARD_WRITE_FILE pfnCardWriteFile;
    PFN_CARD_DELETE_FILE pfnCardDeleteFile;
    PFN_CARD_ENUM_FILES pfnCardEnumFiles;
    PFN_CARD_GET_FILE_INFO pfnCardGetFileInfo;
    PFN_CARD_QUERY_FREE_SPACE pfnCardQueryFreeSpace;
    PFN_CARD_QUERY_KEY_SIZES pfnCardQueryKeySizes;
    PFN_CARD_SIGN_DATA pfnCardSignData;
    PFN_CARD_RSA_DECRYPT pfnCardRSADecrypt;
    PFN_CARD_CONSTRUCT_DH_AGREEMENT pfnCardConstructDHAgreement;
    // From version 5 of the record.
    PFN_CARD_DERIVE_KEY pfnCardDeriveKey;
    PFN_CARD_DESTROY_DH_AGREEMENT pfnCardDestroyDHAgreement;
    PFN_CSP_GET_DH_AGREEMENT pfnCspGetDHAgreement;
    // From version 6 of the record.
    PFN_CARD_GET_CHALLENGE_EX pfnCardGetChallengeEx;
    PFN_CARD_AUTHENTICATE_EX pfnCardAuthenticateEx;
    PFN_CARD_CHANGE_AUTHENTICATOR_EX pfnCardChangeAuthenticatorEx;
    PFN_CARD_DEAUTHENTICATE_EX pfnCardDeauthenticateEx;
    PFN_CARD_GET_CONTAINER_PROPERTY pfnCardGetContainerProperty;
    PFN_CARD_SET_CONTAINER_PROPERTY pfnCardSetContainerProperty;
    PFN_CARD_GET_PROPERTY pfnCardGetProperty;
    PFN_CARD_SET_PROPERTY pfnCardSetProperty;
    // From version 7 of the record.
    PFN_CSP_UNPAD_DATA pfnCspUnpadData;
    PFN_MD_IMPORT_SESSION_KEY pfnMDImportSessionKey;
    PFN_MD_ENCRYPT_DATA pfnMDEncryptData;
    PFN_CARD_IMPORT_SESSION_KEY pfnCardImportSessionKey;
    PFN_CARD_GET_SHARED_KEY_HANDLE pfnCardGetSharedKeyHandle;
    PFN_CARD_GET_ALGORITHM_PROPERTY pfnCardGetAlgorithmProperty;
    PFN_CARD_GET_KEY_PROPERTY pfnCardGetKeyProperty;
    PFN_CARD_SET_KEY_PROPERTY pfnCardSetKeyProperty;
    PFN_CARD_DESTROY_KEY pfnCardDestroyKey;
    PFN_CARD_PROCESS_ENCRYPTED_DATA pfnCardProcessEncryptedData;
    PFN_CARD_CREATE_CONTAINER_EX pfnCardCreateContainerEx;
};

// --- Sizes --------------------------------------------------------------------------------------

static_assert(sizeof(CONTAINER_MAP_RECORD) == 86);
static_assert(sizeof(CARD_CAPABILITIES) == 12);
static_assert(sizeof(CARD_FREE_SPACE_INFO) == 16);
static_assert(sizeof(CARD_FILE_INFO) == 12);
static_assert(sizeof(CARD_KEY_SIZES) == 20);
static_assert(sizeof(PIN_CACHE_POLICY) == 12);
static_assert(sizeof(PIN_INFO) == 36);
static_assert(sizeof(CARD_CACHE_FILE_FORMAT) == 6);
static_assert(sizeof(CONTAINER_INFO) == (sizeof(void*) == 4 ? 24 : 40));
static_assert(sizeof(CARD_DATA) == (sizeof(void*) == 4 ? 252 : 504));
static_assert(offsetof(CARD_DATA, pfnCardCreateContainerEx) == (sizeof(void*) == 4 ? 248 : 496));
