// The platform's types, constants and calls in use where there is no Windows: exactly the calls
// that the minidriver makes, under their published names and with their published signatures. Each
// group is implemented in the file of this folder that is named beside it. An integer type has the
// width that it has on Windows, whatever the width of the machine.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define __cdecl

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using BOOL = std::int32_t;
using LSTATUS = std::int32_t;
using NTSTATUS = std::int32_t;
using ALG_ID = std::uint32_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using WCHAR = char16_t;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using LPCBYTE = const BYTE*;
using PUCHAR = BYTE*;
using PDWORD = DWORD*;
using LPDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPBOOL = BOOL*;
using HANDLE = void*;
using HINSTANCE = void*;
using HMODULE = void*;
using HWND = void*;
using HKEY = void*;
using INTERNET_PORT = WORD;
using FARPROC = std::intptr_t (*)();

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;

inline constexpr LONG ERROR_SUCCESS = 0;
inline constexpr LONG ERROR_FILE_NOT_FOUND = 2;
inline constexpr LONG ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr LONG ERROR_INVALID_PARAMETER = 87;
inline constexpr LONG ERROR_MOD_NOT_FOUND = 126;
inline constexpr LONG ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr LONG ERROR_PROC_NOT_FOUND = 127;
inline constexpr LONG ERROR_MORE_DATA = 234;
inline constexpr LONG ERROR_REVISION_MISMATCH = 1306;
inline constexpr LONG ERROR_UNSUPPORTED_TYPE = 1630;

// --- WinSCard: winscard_pcsclite.cpp -------------------------------------------------------------

using SCARDCONTEXT = ULONG_PTR;
using SCARDHANDLE = ULONG_PTR;
using LPSCARDCONTEXT = SCARDCONTEXT*;
using LPSCARDHANDLE = SCARDHANDLE*;

struct SCARD_IO_REQUEST {
    DWORD dwProtocol;
    DWORD cbPciLength;
};
using LPSCARD_IO_REQUEST = SCARD_IO_REQUEST*;
using LPCSCARD_IO_REQUEST = const SCARD_IO_REQUEST*;

inline constexpr DWORD SCARD_SCOPE_USER = 0;
inline constexpr DWORD SCARD_SHARE_SHARED = 2;
inline constexpr DWORD SCARD_PROTOCOL_T0 = 1;
inline constexpr DWORD SCARD_PROTOCOL_T1 = 2;
inline constexpr DWORD SCARD_LEAVE_CARD = 0;

inline constexpr LONG SCARD_S_SUCCESS = 0;
inline constexpr LONG SCARD_E_INVALID_HANDLE = static_cast<LONG>(0x80100003);
inline constexpr LONG SCARD_E_INVALID_PARAMETER = static_cast<LONG>(0x80100004);
inline constexpr LONG SCARD_E_NO_MEMORY = static_cast<LONG>(0x80100006);
inline constexpr LONG SCARD_E_INSUFFICIENT_BUFFER = static_cast<LONG>(0x80100008);
inline constexpr LONG SCARD_E_UNKNOWN_READER = static_cast<LONG>(0x80100009);
inline constexpr LONG SCARD_E_SHARING_VIOLATION = static_cast<LONG>(0x8010000B);
inline constexpr LONG SCARD_E_NO_SMARTCARD = static_cast<LONG>(0x8010000C);
inline constexpr LONG SCARD_E_UNKNOWN_CARD = static_cast<LONG>(0x8010000D);
inline constexpr LONG SCARD_E_NOT_TRANSACTED = static_cast<LONG>(0x80100016);
inline constexpr LONG SCARD_E_READER_UNAVAILABLE = static_cast<LONG>(0x80100017);
inline constexpr LONG SCARD_E_NO_SERVICE = static_cast<LONG>(0x8010001D);
inline constexpr LONG SCARD_E_UNEXPECTED = static_cast<LONG>(0x8010001F);
inline constexpr LONG SCARD_E_UNSUPPORTED_FEATURE = static_cast<LONG>(0x80100022);
inline constexpr LONG SCARD_E_DIR_NOT_FOUND = static_cast<LONG>(0x80100023);
inline constexpr LONG SCARD_E_FILE_NOT_FOUND = static_cast<LONG>(0x80100024);
inline constexpr LONG SCARD_E_NO_READERS_AVAILABLE = static_cast<LONG>(0x8010002E);
inline constexpr LONG SCARD_E_NO_KEY_CONTAINER = static_cast<LONG>(0x80100030);
inline constexpr LONG SCARD_W_UNRESPONSIVE_CARD = static_cast<LONG>(0x80100066);
inline constexpr LONG SCARD_W_RESET_CARD = static_cast<LONG>(0x80100068);
inline constexpr LONG SCARD_W_REMOVED_CARD = static_cast<LONG>(0x80100069);
inline constexpr LONG SCARD_W_SECURITY_VIOLATION = static_cast<LONG>(0x8010006A);
inline constexpr LONG SCARD_W_WRONG_CHV = static_cast<LONG>(0x8010006B);
inline constexpr LONG SCARD_W_CHV_BLOCKED = static_cast<LONG>(0x8010006C);
inline constexpr LONG SCARD_W_CARD_NOT_AUTHENTICATED = static_cast<LONG>(0x8010006F);

extern "C" {
extern const SCARD_IO_REQUEST g_rgSCardT0Pci;
extern const SCARD_IO_REQUEST g_rgSCardT1Pci;

LONG WINAPI SCardEstablishContext(DWORD dwScope, LPCVOID pvReserved1, LPCVOID pvReserved2,
                                  LPSCARDCONTEXT phContext);
LONG WINAPI SCardReleaseContext(SCARDCONTEXT hContext);
LONG WINAPI SCardListReadersW(SCARDCONTEXT hContext, LPCWSTR mszGroups, LPWSTR mszReaders,
                              LPDWORD pcchReaders);
LONG WINAPI SCardConnectW(SCARDCONTEXT hContext, LPCWSTR szReader, DWORD dwShareMode,
                          DWORD dwPreferredProtocols, LPSCARDHANDLE phCard,
                          LPDWORD pdwActiveProtocol);
LONG WINAPI SCardReconnect(SCARDHANDLE hCard, DWORD dwShareMode, DWORD dwPreferredProtocols,
                           DWORD dwInitialization, LPDWORD pdwActiveProtocol);
LONG WINAPI SCardDisconnect(SCARDHANDLE hCard, DWORD dwDisposition);
LONG WINAPI SCardBeginTransaction(SCARDHANDLE hCard);
LONG WINAPI SCardEndTransaction(SCARDHANDLE hCard, DWORD dwDisposition);
LONG WINAPI SCardStatusW(SCARDHANDLE hCard, LPWSTR mszReaderNames, LPDWORD pcchReaderLen,
                         LPDWORD pdwState, LPDWORD pdwProtocol, LPBYTE pbAtr, LPDWORD pcbAtrLen);
LONG WINAPI SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, LPCBYTE pbSendBuffer,
                          DWORD cbSendLength, LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer,
                          LPDWORD pcbRecvLength);

// --- CRYPT32: certificates.cpp ------------------------------------------------------------------

inline constexpr DWORD X509_ASN_ENCODING = 0x00000001;
inline constexpr DWORD PKCS_7_ASN_ENCODING = 0x00010000;
inline constexpr DWORD CRYPT_STRING_BASE64 = 0x00000001;
inline constexpr DWORD CRYPT_STRING_NOCRLF = 0x40000000;
inline constexpr ALG_ID CALG_RSA_SIGN = 0x00002400;
inline constexpr ALG_ID CALG_RSA_KEYX = 0x0000A400;
inline constexpr BYTE PUBLICKEYBLOB = 0x06;

struct CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
};
// Of the next records only the members in use.
struct CRYPT_ALGORITHM_IDENTIFIER {
    LPSTR pszObjId;
};
struct CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
};
struct CERT_INFO {
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
};
struct CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    CERT_INFO* pCertInfo;
    void* hCertStore;
};
using PCCERT_CONTEXT = const CERT_CONTEXT*;

struct PUBLICKEYSTRUC {
    BYTE bType;
    BYTE bVersion;
    WORD reserved;
    ALG_ID aiKeyAlg;
};
struct RSAPUBKEY {
    DWORD magic;
    DWORD bitlen;
    DWORD pubexp;
};

PCCERT_CONTEXT WINAPI CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                   const BYTE* pbCertEncoded, DWORD cbCertEncoded);
BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);
BOOL WINAPI CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                              const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                              void* pvStructInfo, DWORD* pcbStructInfo);
BOOL WINAPI CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags,
                                 LPSTR pszString, DWORD* pcchString);

// --- ADVAPI32: crypto_api_hash.cpp and registry_settings.cpp -------------------------------------

using HCRYPTPROV = ULONG_PTR;
using HCRYPTKEY = ULONG_PTR;
using HCRYPTHASH = ULONG_PTR;

inline constexpr DWORD PROV_RSA_FULL = 1;
inline constexpr DWORD PROV_RSA_AES = 24;
inline constexpr DWORD CRYPT_VERIFYCONTEXT = 0xF0000000;
inline constexpr DWORD CRYPT_SILENT = 0x00000040;
inline constexpr ALG_ID CALG_SHA1 = 0x00008004;
inline constexpr ALG_ID CALG_SHA_256 = 0x0000800C;
inline constexpr ALG_ID CALG_SHA_384 = 0x0000800D;
inline constexpr ALG_ID CALG_SHA_512 = 0x0000800E;
inline constexpr DWORD HP_HASHVAL = 0x0002;

BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                 DWORD dwProvType, DWORD dwFlags);
BOOL WINAPI CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags);
BOOL WINAPI CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                            HCRYPTHASH* phHash);
BOOL WINAPI CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags);
BOOL WINAPI CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                              DWORD dwFlags);
BOOL WINAPI CryptDestroyHash(HCRYPTHASH hHash);

#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002)))
inline constexpr DWORD RRF_RT_REG_SZ = 0x00000002;

LSTATUS WINAPI RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags,
                            LPDWORD pdwType, PVOID pvData, LPDWORD pcbData);

// --- bcrypt: bcrypt_hash.cpp --------------------------------------------------------------------

using BCRYPT_HANDLE = void*;
using BCRYPT_ALG_HANDLE = void*;
using BCRYPT_HASH_HANDLE = void*;

#define BCRYPT_SUCCESS(status) ((status) >= 0)

inline constexpr ULONG KDF_HASH_ALGORITHM = 0;
inline constexpr ULONG KDF_SECRET_PREPEND = 1;
inline constexpr ULONG KDF_SECRET_APPEND = 2;
inline constexpr ULONG BCRYPTBUFFER_VERSION = 0;

struct BCryptBuffer {
    ULONG cbBuffer;
    ULONG BufferType;
    PVOID pvBuffer;
};
using PBCryptBuffer = BCryptBuffer*;
struct BCryptBufferDesc {
    ULONG ulVersion;
    ULONG cBuffers;
    PBCryptBuffer pBuffers;
};
using PBCryptBufferDesc = BCryptBufferDesc*;
struct BCRYPT_PKCS1_PADDING_INFO {
    LPCWSTR pszAlgId;
};
struct BCRYPT_PSS_PADDING_INFO {
    LPCWSTR pszAlgId;
    ULONG cbSalt;
};
struct BCRYPT_ECCKEY_BLOB {
    ULONG dwMagic;
    ULONG cbKey;
};

NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* phAlgorithm, LPCWSTR pszAlgId,
                                            LPCWSTR pszImplementation, ULONG dwFlags);
NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE hAlgorithm, ULONG dwFlags);
NTSTATUS WINAPI BCryptGetProperty(BCRYPT_HANDLE hObject, LPCWSTR pszProperty, PUCHAR pbOutput,
                                  ULONG cbOutput, ULONG* pcbResult, ULONG dwFlags);
NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE hAlgorithm, BCRYPT_HASH_HANDLE* phHash,
                                 PUCHAR pbHashObject, ULONG cbHashObject, PUCHAR pbSecret,
                                 ULONG cbSecret, ULONG dwFlags);
NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hHash, PUCHAR pbInput, ULONG cbInput,
                               ULONG dwFlags);
NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hHash, PUCHAR pbOutput, ULONG cbOutput,
                                 ULONG dwFlags);
NTSTATUS WINAPI BCryptDestroyHash(BCRYPT_HASH_HANDLE hHash);

// --- WinHTTP: winhttp.cpp -----------------------------------------------------------------------

using HINTERNET = void*;

inline constexpr DWORD WINHTTP_ACCESS_TYPE_DEFAULT_PROXY = 0;
inline constexpr DWORD WINHTTP_FLAG_SECURE = 0x00800000;

HINTERNET WINAPI WinHttpOpen(LPCWSTR pszAgentW, DWORD dwAccessType, LPCWSTR pszProxyW,
                             LPCWSTR pszProxyBypassW, DWORD dwFlags);
HINTERNET WINAPI WinHttpConnect(HINTERNET hSession, LPCWSTR pswzServerName,
                                INTERNET_PORT nServerPort, DWORD dwReserved);
HINTERNET WINAPI WinHttpOpenRequest(HINTERNET hConnect, LPCWSTR pwszVerb, LPCWSTR pwszObjectName,
                                    LPCWSTR pwszVersion, LPCWSTR pwszReferrer,
                                    LPCWSTR* ppwszAcceptTypes, DWORD dwFlags);
BOOL WINAPI WinHttpSetTimeouts(HINTERNET hInternet, int nResolveTimeout, int nConnectTimeout,
                               int nSendTimeout, int nReceiveTimeout);
BOOL WINAPI WinHttpSendRequest(HINTERNET hRequest, LPCWSTR pwszHeaders, DWORD dwHeadersLength,
                               LPVOID lpOptional, DWORD dwOptionalLength, DWORD dwTotalLength,
                               DWORD_PTR dwContext);
BOOL WINAPI WinHttpReceiveResponse(HINTERNET hRequest, LPVOID lpReserved);
BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET hRequest, LPDWORD lpdwNumberOfBytesAvailable);
BOOL WINAPI WinHttpReadData(HINTERNET hRequest, LPVOID lpBuffer, DWORD dwNumberOfBytesToRead,
                            LPDWORD lpdwNumberOfBytesRead);
BOOL WINAPI WinHttpCloseHandle(HINTERNET hInternet);

// --- ole32: guid_text.cpp -----------------------------------------------------------------------

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

int WINAPI StringFromGUID2(const GUID& rguid, LPWSTR lpsz, int cchMax);

// --- USER32: windows.cpp ------------------------------------------------------------------------

BOOL WINAPI IsWindow(HWND hWnd);
HWND WINAPI GetForegroundWindow();
int WINAPI GetClassNameW(HWND hWnd, LPWSTR lpClassName, int nMaxCount);

// --- KERNEL32: libraries.cpp and code_pages.cpp --------------------------------------------------

inline constexpr DWORD LOAD_WITH_ALTERED_SEARCH_PATH = 0x00000008;
inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_UTF8 = 65001;

HMODULE WINAPI LoadLibraryExW(LPCWSTR lpLibFileName, HANDLE hFile, DWORD dwFlags);
FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
BOOL WINAPI FreeLibrary(HMODULE hLibModule);
BOOL WINAPI SetCurrentDirectoryW(LPCWSTR lpPathName);
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD dwErrCode);

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar);
int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                               LPBOOL lpUsedDefaultChar);
}

// A structure type given as a number where a name could stand, as the published macros have it.
#define RSA_CSP_PUBLICKEYBLOB (reinterpret_cast<LPCSTR>(static_cast<ULONG_PTR>(19)))
#define MS_PRIMITIVE_PROVIDER u"Microsoft Primitive Provider"
#define BCRYPT_HASH_LENGTH u"HashDigestLength"
