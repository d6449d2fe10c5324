// bcrypt's hashes over Botan.
#include <botan/hash.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>

#include "platform/win32.h"
#include "posix/handle_table.h"

namespace KelmoraID::platform {
namespace {

constexpr NTSTATUS STATUS_SUCCESS = 0;
constexpr NTSTATUS STATUS_INVALID_HANDLE = static_cast<NTSTATUS>(0xC0000008);
constexpr NTSTATUS STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000D);
constexpr NTSTATUS STATUS_NO_MEMORY = static_cast<NTSTATUS>(0xC0000017);
constexpr NTSTATUS STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023);
constexpr NTSTATUS STATUS_NOT_SUPPORTED = static_cast<NTSTATUS>(0xC00000BB);
constexpr NTSTATUS STATUS_NOT_FOUND = static_cast<NTSTATUS>(0xC0000225);

struct Algorithm {
    std::u16string_view id;
    const char* name;
    ULONG digestLength;
};
constexpr Algorithm algorithms[] = {
    {u"MD5", "MD5", 16},        {u"SHA1", "SHA-1", 20},     {u"SHA256", "SHA-256", 32},
    {u"SHA384", "SHA-384", 48}, {u"SHA512", "SHA-512", 64},
};

// What stands behind either kind of handle: a provider is an algorithm without a hash under way.
struct Object {
    const Algorithm* algorithm = nullptr;
    std::unique_ptr<Botan::HashFunction> function;
    bool finished = false;
};

HandleTable<Object>& providers() {
    static HandleTable<Object> table;
    return table;
}

HandleTable<Object>& hashes() {
    static HandleTable<Object> table;
    return table;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* phAlgorithm, LPCWSTR pszAlgId,
                                            LPCWSTR pszImplementation, ULONG dwFlags) try {
    if (phAlgorithm == nullptr || pszAlgId == nullptr || dwFlags != 0) {
        return STATUS_INVALID_PARAMETER;
    }
    *phAlgorithm = nullptr;
    const std::u16string_view id = pszAlgId;
    const auto* algorithm = std::find_if(std::begin(algorithms), std::end(algorithms),
                                         [id](const Algorithm& row) { return row.id == id; });
    if (algorithm == std::end(algorithms)) return STATUS_NOT_FOUND;
    if (pszImplementation != nullptr &&
        std::u16string_view(pszImplementation) != MS_PRIMITIVE_PROVIDER) {
        return STATUS_NOT_FOUND;
    }
    auto provider = std::make_shared<Object>();
    provider->algorithm = algorithm;
    *phAlgorithm = reinterpret_cast<BCRYPT_ALG_HANDLE>(providers().add(std::move(provider)));
    return STATUS_SUCCESS;
} catch (const std::exception&) {
    return STATUS_NO_MEMORY;
}

NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE hAlgorithm, ULONG) {
    return providers().remove(hAlgorithm) == nullptr ? STATUS_INVALID_HANDLE : STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptGetProperty(BCRYPT_HANDLE hObject, LPCWSTR pszProperty, PUCHAR pbOutput,
                                  ULONG cbOutput, ULONG* pcbResult, ULONG dwFlags) {
    std::shared_ptr<Object> object = providers().find(hObject);
    if (object == nullptr) object = hashes().find(hObject);
    if (object == nullptr) return STATUS_INVALID_HANDLE;
    if (pszProperty == nullptr || pcbResult == nullptr || dwFlags != 0) {
        return STATUS_INVALID_PARAMETER;
    }
    if (std::u16string_view(pszProperty) != BCRYPT_HASH_LENGTH) return STATUS_NOT_SUPPORTED;
    const ULONG value = object->algorithm->digestLength;
    *pcbResult = sizeof(value);
    if (pbOutput == nullptr) return STATUS_SUCCESS;
    if (cbOutput < sizeof(value)) return STATUS_BUFFER_TOO_SMALL;
    std::memcpy(pbOutput, &value, sizeof(value));
    return STATUS_SUCCESS;
}

// The caller's memory for the hash object is not needed and stays untouched. A secret is for a
// provider opened for HMAC, of which there is none.
NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE hAlgorithm, BCRYPT_HASH_HANDLE* phHash, PUCHAR,
                                 ULONG, PUCHAR pbSecret, ULONG cbSecret, ULONG dwFlags) try {
    const std::shared_ptr<Object> provider = providers().find(hAlgorithm);
    if (provider == nullptr) return STATUS_INVALID_HANDLE;
    if (phHash == nullptr || pbSecret != nullptr || cbSecret != 0 || dwFlags != 0) {
        return STATUS_INVALID_PARAMETER;
    }
    *phHash = nullptr;
    auto hash = std::make_shared<Object>();
    hash->algorithm = provider->algorithm;
    hash->function = Botan::HashFunction::create_or_throw(provider->algorithm->name);
    *phHash = reinterpret_cast<BCRYPT_HASH_HANDLE>(hashes().add(std::move(hash)));
    return STATUS_SUCCESS;
} catch (const std::exception&) {
    return STATUS_NO_MEMORY;
}

NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hHash, PUCHAR pbInput, ULONG cbInput,
                               ULONG dwFlags) try {
    const std::shared_ptr<Object> hash = hashes().find(hHash);
    if (hash == nullptr) return STATUS_INVALID_HANDLE;
    if ((pbInput == nullptr && cbInput != 0) || dwFlags != 0 || hash->finished) {
        return STATUS_INVALID_PARAMETER;
    }
    if (cbInput != 0) hash->function->update(pbInput, cbInput);
    return STATUS_SUCCESS;
} catch (const std::exception&) {
    return STATUS_NO_MEMORY;
}

NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hHash, PUCHAR pbOutput, ULONG cbOutput,
                                 ULONG dwFlags) try {
    const std::shared_ptr<Object> hash = hashes().find(hHash);
    if (hash == nullptr) return STATUS_INVALID_HANDLE;
    if (pbOutput == nullptr || cbOutput != hash->algorithm->digestLength || dwFlags != 0 ||
        hash->finished) {
        return STATUS_INVALID_PARAMETER;
    }
    hash->function->final(pbOutput);
    hash->finished = true;
    return STATUS_SUCCESS;
} catch (const std::exception&) {
    return STATUS_NO_MEMORY;
}

NTSTATUS WINAPI BCryptDestroyHash(BCRYPT_HASH_HANDLE hHash) {
    return hashes().remove(hHash) == nullptr ? STATUS_INVALID_HANDLE : STATUS_SUCCESS;
}
