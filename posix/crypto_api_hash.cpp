// ADVAPI32's hash calls over Botan: providers without keys, and their hashes. A handle that is
// closed twice, or not at all, is for the sanitizers to see. Flags that are not in use are refused,
// and nothing is closed.
#include <botan/hash.h>

#include <memory>

#include "platform/win32.h"

namespace {

constexpr DWORD NTE_BAD_ALGID = 0x80090008;
constexpr DWORD NTE_BAD_FLAGS = 0x80090009;
constexpr DWORD NTE_PROV_TYPE_NOT_DEF = 0x80090017;

struct Provider {
    DWORD type;
};

Provider* providerOf(HCRYPTPROV handle) {
    return reinterpret_cast<Provider*>(handle);
}

Botan::HashFunction* functionOf(HCRYPTHASH handle) {
    return reinterpret_cast<Botan::HashFunction*>(handle);
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// The older type of provider has no hash of the second family.
const char* nameOf(ALG_ID algorithm, const Provider& provider) {
    if (algorithm == CALG_SHA1) return "SHA-1";
    if (algorithm == CALG_SHA_256 && provider.type == PROV_RSA_AES) return "SHA-256";
    return nullptr;
}

}  // namespace

BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR, LPCWSTR, DWORD dwProvType,
                                 DWORD dwFlags) {
    // Without a key container. There is nobody to be asked, silent or not.
    if ((dwFlags & ~CRYPT_SILENT) != CRYPT_VERIFYCONTEXT) return fail(NTE_BAD_FLAGS);
    if (dwProvType != PROV_RSA_FULL && dwProvType != PROV_RSA_AES) {
        return fail(NTE_PROV_TYPE_NOT_DEF);
    }
    *phProv = reinterpret_cast<HCRYPTPROV>(new Provider{dwProvType});
    return TRUE;
}

BOOL WINAPI CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
    if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
    delete providerOf(hProv);
    return TRUE;
}

BOOL WINAPI CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                            HCRYPTHASH* phHash) {
    if (hKey != 0 || dwFlags != 0) return fail(NTE_BAD_FLAGS);
    const char* name = nameOf(Algid, *providerOf(hProv));
    if (name == nullptr) return fail(NTE_BAD_ALGID);
    *phHash = reinterpret_cast<HCRYPTHASH>(Botan::HashFunction::create_or_throw(name).release());
    return TRUE;
}

BOOL WINAPI CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) {
    if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
    functionOf(hHash)->update(pbData, dwDataLen);
    return TRUE;
}

// Of the parameters only the digest is in use.
BOOL WINAPI CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                              DWORD dwFlags) {
    if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
    if (dwParam != HP_HASHVAL) return fail(ERROR_INVALID_PARAMETER);
    if (*pdwDataLen < functionOf(hHash)->output_length()) return fail(ERROR_MORE_DATA);
    *pdwDataLen = static_cast<DWORD>(functionOf(hHash)->output_length());
    functionOf(hHash)->final(pbData);
    return TRUE;
}

BOOL WINAPI CryptDestroyHash(HCRYPTHASH hHash) {
    delete functionOf(hHash);
    return TRUE;
}
