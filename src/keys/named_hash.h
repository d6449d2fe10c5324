// The platform's hash by name, fed piecewise: the two handles of bcrypt behind owners that close
// them once. Whoever has to close at a certain moment says so; the destructors see to the rest.
#pragma once

#include <span>

#include "platform/wide_text.h"

namespace KelmoraID {

/// An algorithm provider of the platform's own implementation.
class HashProvider {
public:
    HashProvider() = default;
    ~HashProvider() { close(); }
    HashProvider(const HashProvider&) = delete;
    HashProvider& operator=(const HashProvider&) = delete;

    /// @param name  such as "SHA256" @return whether the platform opened it
    bool open(const WideString& name) {
        isOpen_ = BCRYPT_SUCCESS(
            BCryptOpenAlgorithmProvider(&handle_, name.c_str(), MS_PRIMITIVE_PROVIDER, 0));
        return isOpen_;
    }
    /// The digest's length in bytes. @return whether the platform told
    bool getDigestLength(DWORD& length) const {
        ULONG written = 0;
        return BCRYPT_SUCCESS(BCryptGetProperty(handle_, BCRYPT_HASH_LENGTH,
                                                reinterpret_cast<PUCHAR>(&length), sizeof(length),
                                                &written, 0));
    }
    void close() {
        if (isOpen_) BCryptCloseAlgorithmProvider(handle_, 0);
        isOpen_ = false;
    }
    BCRYPT_ALG_HANDLE handle() const { return handle_; }

private:
    BCRYPT_ALG_HANDLE handle_ = nullptr;
    bool isOpen_ = false;
};

/// One computation of a hash. It has to end before its provider is closed.
class HashComputation {
public:
    HashComputation() = default;
    ~HashComputation() { destroy(); }
    HashComputation(const HashComputation&) = delete;
    HashComputation& operator=(const HashComputation&) = delete;

    /// Each of these tells whether the platform did it.
    bool create(const HashProvider& provider) {
        isOpen_ = BCRYPT_SUCCESS(
            BCryptCreateHash(provider.handle(), &handle_, nullptr, 0, nullptr, 0, 0));
        return isOpen_;
    }
    bool feed(std::span<const BYTE> bytes) {
        // The platform takes the input as not const, and leaves it alone.
        return BCRYPT_SUCCESS(BCryptHashData(handle_, const_cast<PUCHAR>(bytes.data()),
                                             static_cast<ULONG>(bytes.size()), 0));
    }
    /// @param digest  of the digest's length
    bool finish(std::span<BYTE> digest) {
        return BCRYPT_SUCCESS(
            BCryptFinishHash(handle_, digest.data(), static_cast<ULONG>(digest.size()), 0));
    }
    void destroy() {
        if (isOpen_) BCryptDestroyHash(handle_);
        isOpen_ = false;
    }

private:
    BCRYPT_HASH_HANDLE handle_ = nullptr;
    bool isOpen_ = false;
};

}  // namespace KelmoraID
