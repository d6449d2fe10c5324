// CardGetContainerProperty: a container's properties by name.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "session/card_context.h"
#include "session/entry_log.h"
#include "session/entry_points.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardGetContainerProperty";
constexpr const char* invalidIndex = "CMR_390: bContainerIndex is invalid.";

// A failed check: the exit line comes ahead of the message.
DWORD refuse(DWORD status, const char* message) {
    exitWith(scope, status);
    logError(message);
    return status;
}

// quirk: untold-exits. The two checks ahead of the container's have their numbered line alone.
DWORD refuseWithoutExit(const char* message) {
    logError(message);
    return SCARD_E_INVALID_PARAMETER;
}

// An answer is written to a buffer that has the property's size. It gives 0, or the status of a
// failure whose lines are written already.
using Answer = DWORD (*)(PCARD_DATA pCardData, BYTE bContainerIndex, PBYTE pbData);

// A record in a byte buffer, which need not be aligned: by way of one of our own. It goes back also
// where something is thrown, since a buffer of the caller's may be in it.
class RecordInBuffer {
public:
    explicit RecordInBuffer(PBYTE buffer) : buffer_(buffer) {
        std::memcpy(&info, buffer, sizeof(info));
    }
    ~RecordInBuffer() { std::memcpy(buffer_, &info, sizeof(info)); }
    RecordInBuffer(const RecordInBuffer&) = delete;
    RecordInBuffer& operator=(const RecordInBuffer&) = delete;

    CONTAINER_INFO info;

private:
    PBYTE buffer_;
};

DWORD answerContainerInfo(PCARD_DATA pCardData, BYTE bContainerIndex, PBYTE pbData) {
    RecordInBuffer record(pbData);
    const DWORD status = CardGetContainerInfo(pCardData, bContainerIndex, 0, &record.info);
    if (status != SCARD_S_SUCCESS) exitWith(scope, status);
    return status;
}

DWORD answerPinIdentifier(PCARD_DATA pCardData, BYTE bContainerIndex, PBYTE pbData) {
    const CardContext& context = contextOf(pCardData);
    if ((context.containers.at(bContainerIndex).bFlags & CONTAINER_MAP_VALID_CONTAINER) == 0) {
        return refuse(SCARD_E_NO_KEY_CONTAINER, invalidIndex);
    }
    std::uint32_t pinIdentifier = 0;
    if (bContainerIndex == 0) {
        pinIdentifier = 1;
    } else if (hasContainer(context, bContainerIndex)) {
        pinIdentifier = 4;
    } else {
        return exitWith(scope, SCARD_E_UNEXPECTED);
    }
    std::memcpy(pbData, &pinIdentifier, sizeof(pinIdentifier));
    return SCARD_S_SUCCESS;
}

// quirk: no-associated-key. There are none, so every container is refused, by the line of an index.
DWORD answerAssociatedEcdhKey(PCARD_DATA, BYTE, PBYTE) {
    return refuse(SCARD_E_NO_KEY_CONTAINER, invalidIndex);
}

struct Property {
    WideStringView name;
    DWORD size;
    Answer answer;
};

constexpr std::array<Property, 3> properties{{
    {WIDE_TEXT("Container Info"), sizeof(CONTAINER_INFO), answerContainerInfo},
    {WIDE_TEXT("PIN Identifier"), sizeof(std::uint32_t), answerPinIdentifier},
    {WIDE_TEXT("Associated ECDH Key"), 1, answerAssociatedEcdhKey},
}};

}  // namespace

DWORD WINAPI CardGetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex,
                                      LPCWSTR wszProperty, PBYTE pbData, DWORD cbData,
                                      PDWORD pdwDataLen, DWORD dwFlags) {
    logEntry(scope);
    if (pCardData == nullptr) {
        return refuse(SCARD_E_INVALID_PARAMETER, "CMR_389: pCardData is NULL.");
    }
    if (pCardData->hSCardCtx == 0) return exitWith(scope, SCARD_E_INVALID_PARAMETER);
    if (wszProperty == nullptr) {
        return refuseWithoutExit("CMR_391: wszProperty is NULL or empty");
    }
    logToFile(scope, "with parameters wszProperty: '{}'", wideToUtf8(wszProperty).c_str());
    if (pbData == nullptr) return refuseWithoutExit("CMR_392: pbData is NULL.");
    if (bContainerIndex >= contextOf(pCardData).containers.size()) {
        return refuse(SCARD_E_NO_KEY_CONTAINER, invalidIndex);
    }
    const auto property =
        std::find_if(properties.begin(), properties.end(),
                     [&](const Property& known) { return known.name == wszProperty; });
    if (property == properties.end()) {
        return refuse(SCARD_E_INVALID_PARAMETER, "CMR_391: wszProperty is invalid.");
    }
    if (dwFlags != 0) {
        return refuse(SCARD_E_INVALID_PARAMETER, "CMR_393: dwFlags is invalid.");
    }
    if (cbData < property->size) {
        return refuse(SCARD_E_INSUFFICIENT_BUFFER, "CMR_395: cbData is too small.");
    }
    if (pdwDataLen == nullptr) {
        return refuse(SCARD_E_INVALID_PARAMETER, "CMR_396: pdwDataLen is NULL.");
    }
    const DWORD status = property->answer(pCardData, bContainerIndex, pbData);
    if (status != SCARD_S_SUCCESS) return status;
    *pdwDataLen = property->size;
    return exitWith(scope, SCARD_S_SUCCESS);
}

}  // namespace KelmoraID
