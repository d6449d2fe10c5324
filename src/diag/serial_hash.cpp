#include "diag/serial_hash.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "diag/logger.h"

namespace KelmoraID {
namespace {

struct Provider {
    HCRYPTPROV handle = 0;
    Provider() = default;
    ~Provider() {
        if (handle != 0) CryptReleaseContext(handle, 0);
    }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;
};

struct Hash {
    HCRYPTHASH handle = 0;
    Hash() = default;
    ~Hash() {
        if (handle != 0) CryptDestroyHash(handle);
    }
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;
};

// The two blanks are meant.
void logFailure(const char* call) {
    const DWORD error = GetLastError();
    logError(fmt::format("{} failed:  {}", call, error));
}

}  // namespace

ByteVector hashOfSerial(const std::string& serial) {
    ByteVector identity(16);
    Provider provider;
    if (!CryptAcquireContextW(&provider.handle, nullptr, nullptr, PROV_RSA_AES,
                              CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) {
        provider.handle = 0;
        logFailure("CryptAcquireContext");
        return identity;
    }
    Hash hash;
    if (!CryptCreateHash(provider.handle, CALG_SHA_256, 0, 0, &hash.handle)) {
        hash.handle = 0;
        logFailure("CryptCreateHash");
        return identity;
    }
    if (!CryptHashData(hash.handle, reinterpret_cast<const BYTE*>(serial.data()),
                       static_cast<DWORD>(serial.size()), 0)) {
        logFailure("CryptHashData");
        return identity;
    }
    std::array<BYTE, 32> digest{};
    DWORD length = digest.size();
    if (!CryptGetHashParam(hash.handle, HP_HASHVAL, digest.data(), &length, 0)) {
        logFailure("CryptGetHashParam");
        return identity;
    }
    std::copy_n(digest.begin(), identity.size(), identity.begin());
    return identity;
}

}  // namespace KelmoraID
