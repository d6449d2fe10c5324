// ADVAPI32's hash calls over Botan: providers without keys, and their hashes.
#include <botan/hash.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <vector>

#include "platform/win32.h"
#include "posix/handle_table.h"

namespace KelmoraID::platform {
namespace {

constexpr DWORD NTE_BAD_ALGID = 0x80090008;
constexpr DWORD NTE_BAD_FLAGS = 0x80090009;
constexpr DWORD NTE_BAD_TYPE = 0x8009000A;
constexpr DWORD NTE_BAD_HASH_STATE = 0x8009000C;
constexpr DWORD NTE_BAD_KEYSET = 0x80090016;
constexpr DWORD NTE_PROV_TYPE_NOT_DEF = 0x80090017;
constexpr DWORD NTE_KEYSET_NOT_DEF = 0x80090019;

// The hashes, and the types of provider that have them.
struct Algorithm {
    ALG_ID id;
    DWORD providerType;
    const char* name;
};
constexpr Algorithm algorithms[] = {
    {CALG_SHA1, PROV_RSA_FULL, "SHA-1"},     {CALG_SHA1, PROV_RSA_AES, "SHA-1"},
    {CALG_SHA_256, PROV_RSA_AES, "SHA-256"}, {CALG_SHA_384, PROV_RSA_AES, "SHA-384"},
    {CALG_SHA_512, PROV_RSA_AES, "SHA-512"},
};

struct Provider {
    DWORD type;
};

struct Hash {
    std::unique_ptr<Botan::HashFunction> function;
    std::vector<BYTE> digest;  // filled when the digest is first read: the hash is finished then
};

HandleTable<Provider>& providers() {
    static HandleTable<Provider> table;
    return table;
}

HandleTable<Hash>& hashes() {
    static HandleTable<Hash> table;
    return table;
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                 DWORD dwProvType, DWORD dwFlags) try {
    if (phProv == nullptr) return fail(ERROR_INVALID_PARAMETER);
    *phProv = 0;
    if ((dwFlags & ~(CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) != 0) return fail(NTE_BAD_FLAGS);
    if (dwProvType != PROV_RSA_FULL && dwProvType != PROV_RSA_AES) {
        return fail(NTE_PROV_TYPE_NOT_DEF);
    }
    if (szProvider != nullptr) return fail(NTE_KEYSET_NOT_DEF);
    // There are no stored keys, so there is no container to open.
    if (szContainer != nullptr || (dwFlags & CRYPT_VERIFYCONTEXT) != CRYPT_VERIFYCONTEXT) {
        return fail(NTE_BAD_KEYSET);
    }
    *phProv = providers().add(std::make_shared<Provider>(Provider{dwProvType}));
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
    if (providers().remove(hProv) == nullptr) return fail(ERROR_INVALID_HANDLE);
    // The provider is released all the same, as published.
    return dwFlags == 0 ? TRUE : fail(NTE_BAD_FLAGS);
}

BOOL WINAPI CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                            HCRYPTHASH* phHash) try {
    const std::shared_ptr<Provider> provider = providers().find(hProv);
    if (provider == nullptr) return fail(ERROR_INVALID_HANDLE);
    if (phHash == nullptr || hKey != 0) return fail(ERROR_INVALID_PARAMETER);
    *phHash = 0;
    if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
    const auto* algorithm =
        std::find_if(std::begin(algorithms), std::end(algorithms), [&](const Algorithm& row) {
            return row.id == Algid && row.providerType == provider->type;
        });
    if (algorithm == std::end(algorithms)) return fail(NTE_BAD_ALGID);
    auto hash = std::make_shared<Hash>();
    hash->function = Botan::HashFunction::create_or_throw(algorithm->name);
    *phHash = hashes().add(std::move(hash));
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
                          DWORD dwFlags) try {
    const std::shared_ptr<Hash> hash = hashes().find(hHash);
    if (hash == nullptr) return fail(ERROR_INVALID_HANDLE);
    if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
    if (pbData == nullptr && dwDataLen != 0) return fail(ERROR_INVALID_PARAMETER);
    if (!hash->digest.empty()) return fail(NTE_BAD_HASH_STATE);
    if (dwDataLen != 0) hash->function->update(pbData, dwDataLen);
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                              DWORD dwFlags) try {
    const std::shared_ptr<Hash> hash = hashes().find(hHash);
    if (hash == nullptr) return fail(ERROR_INVALID_HANDLE);
    if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
    if (pdwDataLen == nullptr) return fail(ERROR_INVALID_PARAMETER);
    if (dwParam != HP_HASHVAL) return fail(NTE_BAD_TYPE);
    const DWORD room = *pdwDataLen;
    const auto needed = static_cast<DWORD>(hash->function->output_length());
    *pdwDataLen = needed;
    if (pbData == nullptr) return TRUE;
    if (room < needed) return fail(ERROR_MORE_DATA);
    // The digest can be read again; nothing more can be hashed.
    if (hash->digest.empty()) {
        std::vector<BYTE> digest(needed);
        hash->function->final(digest.data());
        hash->digest = std::move(digest);
    }
    std::copy(hash->digest.begin(), hash->digest.end(), pbData);
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI CryptDestroyHash(HCRYPTHASH hHash) {
    return hashes().remove(hHash) == nullptr ? fail(ERROR_INVALID_HANDLE) : TRUE;
}
