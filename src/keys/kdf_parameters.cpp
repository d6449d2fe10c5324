#include "keys/kdf_parameters.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "log/logger.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

constexpr std::array<WideStringView, 4> hashNames{
    WIDE_TEXT("SHA1"),
    WIDE_TEXT("SHA256"),
    WIDE_TEXT("SHA384"),
    WIDE_TEXT("SHA512"),
};

constexpr const char* invalidHash = ". Invalid hash algorithm.";
constexpr const char* invalidBuffer = ". CMR_448";

// The text up to its terminator or to the end of the buffer, which need not be aligned.
WideString nameIn(const BCryptBuffer& buffer) {
    const auto bytes = static_cast<const BYTE*>(buffer.pvBuffer);
    WideString name;
    for (std::size_t at = 0; at + sizeof(WCHAR) <= buffer.cbBuffer; at += sizeof(WCHAR)) {
        WCHAR unit;
        std::memcpy(&unit, bytes + at, sizeof(unit));
        if (unit == 0) break;
        name.push_back(unit);
    }
    return name;
}

const char* readHashName(const char* scope, const BCryptBuffer& buffer, WideString& hashName) {
    if (buffer.pvBuffer == nullptr) return invalidHash;
    const WideString name = nameIn(buffer);
    if (std::find(hashNames.begin(), hashNames.end(), name) == hashNames.end()) return invalidHash;
    logToFile(scope, "Hash algorithm from buffer: {}.", wideToUtf8(name).c_str());
    hashName = name;
    return nullptr;
}

const char* appendBytes(const BCryptBuffer& buffer, ByteVector& bytes) {
    if (buffer.cbBuffer == 0) return nullptr;
    if (buffer.pvBuffer == nullptr) return invalidBuffer;
    const auto first = static_cast<const BYTE*>(buffer.pvBuffer);
    bytes.insert(bytes.end(), first, first + buffer.cbBuffer);
    return nullptr;
}

const char* readBuffer(const char* scope, const BCryptBuffer& buffer, KdfParameters& parameters) {
    switch (buffer.BufferType) {
        case KDF_HASH_ALGORITHM:
        case KDF_SECRET_PREPEND:
        case KDF_SECRET_APPEND:
            break;
        default:
            return invalidBuffer;
    }
    logToFile(scope, "Found a KDF buffer with type: {}.", buffer.BufferType);
    if (buffer.BufferType == KDF_HASH_ALGORITHM) {
        return readHashName(scope, buffer, parameters.hashName);
    }
    return appendBytes(
        buffer, buffer.BufferType == KDF_SECRET_PREPEND ? parameters.prepend : parameters.append);
}

}  // namespace

const char* readKdfParameters(const char* scope, const BCryptBufferDesc& list,
                              KdfParameters& parameters) {
    if (list.cBuffers == 0) return nullptr;
    if (list.pBuffers == nullptr) return invalidBuffer;
    for (const BCryptBuffer& buffer : std::span(list.pBuffers, list.cBuffers)) {
        if (const char* refusal = readBuffer(scope, buffer, parameters)) return refusal;
    }
    return nullptr;
}

}  // namespace KelmoraID
