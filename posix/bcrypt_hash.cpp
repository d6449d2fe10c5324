// bcrypt's hashes over Botan. Behind a provider's handle and a hash's stands a hash function alike;
// a handle that is closed twice, or not at all, is for the sanitizers to see. No call here knows
// flags: with any it is refused, and nothing is closed.
#include <botan/hash.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/win32.h"

namespace {

constexpr NTSTATUS STATUS_SUCCESS = 0;
constexpr NTSTATUS STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000D);
constexpr NTSTATUS STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023);
constexpr NTSTATUS STATUS_NOT_FOUND = static_cast<NTSTATUS>(0xC0000225);

struct Algorithm {
    std::u16string_view id;
    const char* name;
};
constexpr Algorithm algorithms[] = {{u"MD5", "MD5"},
                                    {u"SHA1", "SHA-1"},
                                    {u"SHA256", "SHA-256"},
                                    {u"SHA384", "SHA-384"},
                                    {u"SHA512", "SHA-512"}};

Botan::HashFunction* functionOf(void* handle) {
    return static_cast<Botan::HashFunction*>(handle);
}

}  // namespace

NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* phAlgorithm, LPCWSTR pszAlgId,
                                            LPCWSTR pszImplementation, ULONG dwFlags) {
    if (dwFlags != 0) return STATUS_INVALID_PARAMETER;
    if (std::u16string_view(pszImplementation) != MS_PRIMITIVE_PROVIDER) return STATUS_NOT_FOUND;
    const auto* algorithm = std::find_if(std::begin(algorithms), std::end(algorithms),
                                         [&](const Algorithm& row) { return row.id == pszAlgId; });
    if (algorithm == std::end(algorithms)) return STATUS_NOT_FOUND;
    *phAlgorithm = Botan::HashFunction::create_or_throw(algorithm->name).release();
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE hAlgorithm, ULONG dwFlags) {
    if (dwFlags != 0) return STATUS_INVALID_PARAMETER;
    delete functionOf(hAlgorithm);
    return STATUS_SUCCESS;
}

// Of the properties only BCRYPT_HASH_LENGTH is in use.
NTSTATUS WINAPI BCryptGetProperty(BCRYPT_HANDLE hObject, LPCWSTR pszProperty, PUCHAR pbOutput,
                                  ULONG cbOutput, ULONG* pcbResult, ULONG dwFlags) {
    if (dwFlags != 0) return STATUS_INVALID_PARAMETER;
    if (std::u16string_view(pszProperty) != BCRYPT_HASH_LENGTH) return STATUS_NOT_FOUND;
    const auto length = static_cast<ULONG>(functionOf(hObject)->output_length());
    *pcbResult = sizeof(length);
    if (cbOutput < sizeof(length)) return STATUS_BUFFER_TOO_SMALL;
    std::memcpy(pbOutput, &length, sizeof(length));
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE hAlgorithm, BCRYPT_HASH_HANDLE* phHash, PUCHAR,
                                 ULONG cbHashObject, PUCHAR, ULONG cbSecret, ULONG dwFlags) {
    // Without a buffer of the caller's and without a key.
    if (cbHashObject != 0 || cbSecret != 0 || dwFlags != 0) return STATUS_INVALID_PARAMETER;
    *phHash = Botan::HashFunction::create_or_throw(functionOf(hAlgorithm)->name()).release();
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hHash, PUCHAR pbInput, ULONG cbInput,
                               ULONG dwFlags) {
    if (dwFlags != 0) return STATUS_INVALID_PARAMETER;
    functionOf(hHash)->update(pbInput, cbInput);
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hHash, PUCHAR pbOutput, ULONG cbOutput,
                                 ULONG dwFlags) {
    if (dwFlags != 0 || cbOutput != functionOf(hHash)->output_length())
        return STATUS_INVALID_PARAMETER;
    functionOf(hHash)->final(pbOutput);
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptDestroyHash(BCRYPT_HASH_HANDLE hHash) {
    delete functionOf(hHash);
    return STATUS_SUCCESS;
}
