#include "hash/serial_hash.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "hash/crypto_api_hash.h"
#include "log/logger.h"

namespace KelmoraID {
namespace {

// quirk: two-blanks. A search in a log goes by the text.
void logFailure(const char* call) {
    const DWORD error = GetLastError();
    logError(fmt::format("{} failed:  {}", call, error));
}

}  // namespace

ByteVector hashOfSerial(const std::string& serial) {
    // quirk: identity-of-zeros. What a failure leaves is no error to the caller.
    ByteVector identity(16);
    CryptoApiProvider provider;
    if (!provider.acquire(PROV_RSA_AES, CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) {
        logFailure("CryptAcquireContext");
        return identity;
    }
    CryptoApiHash hash;
    if (!hash.create(provider, CALG_SHA_256)) {
        logFailure("CryptCreateHash");
        return identity;
    }
    if (!hash.feed({reinterpret_cast<const BYTE*>(serial.data()), serial.size()})) {
        logFailure("CryptHashData");
        return identity;
    }
    std::array<BYTE, 32> digest{};
    if (!hash.finish(digest)) {
        logFailure("CryptGetHashParam");
        return identity;
    }
    std::copy_n(digest.begin(), identity.size(), identity.begin());
    return identity;
}

}  // namespace KelmoraID
