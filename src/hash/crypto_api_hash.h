// A digest by the platform's CryptoAPI: its two handles behind owners that close them once. Each
// step tells whether the platform did it; the last system error stands until the next call.
#pragma once

#include <span>

#include "platform/win32.h"

namespace KelmoraID {

/// A provider without a key container. It has to outlive its digests.
class CryptoApiProvider {
public:
    CryptoApiProvider() = default;
    ~CryptoApiProvider() {
        if (handle_ != 0) CryptReleaseContext(handle_, 0);
    }
    CryptoApiProvider(const CryptoApiProvider&) = delete;
    CryptoApiProvider& operator=(const CryptoApiProvider&) = delete;

    /// @param type  such as PROV_RSA_FULL  @param flags  such as CRYPT_VERIFYCONTEXT
    bool acquire(DWORD type, DWORD flags) {
        if (CryptAcquireContextW(&handle_, nullptr, nullptr, type, flags)) return true;
        handle_ = 0;
        return false;
    }
    HCRYPTPROV handle() const { return handle_; }

private:
    HCRYPTPROV handle_ = 0;
};

/// One digest.
class CryptoApiHash {
public:
    CryptoApiHash() = default;
    ~CryptoApiHash() {
        if (handle_ != 0) CryptDestroyHash(handle_);
    }
    CryptoApiHash(const CryptoApiHash&) = delete;
    CryptoApiHash& operator=(const CryptoApiHash&) = delete;

    bool create(const CryptoApiProvider& provider, ALG_ID algorithm) {
        if (CryptCreateHash(provider.handle(), algorithm, 0, 0, &handle_)) return true;
        handle_ = 0;
        return false;
    }
    bool feed(std::span<const BYTE> bytes) {
        return CryptHashData(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), 0) != FALSE;
    }
    /// @param digest  of the algorithm's length
    bool finish(std::span<BYTE> digest) {
        auto length = static_cast<DWORD>(digest.size());
        return CryptGetHashParam(handle_, HP_HASHVAL, digest.data(), &length, 0) != FALSE;
    }

private:
    HCRYPTHASH handle_ = 0;
};

}  // namespace KelmoraID
