// The statuses of the system by name, for tests. The one table that holds their numbers: the names
// of the platform's headers are checked against it.
#pragma once

#include "platform/win32.h"

namespace status {

inline constexpr DWORD success = 0;
inline constexpr DWORD notEnoughMemory = 8;
inline constexpr DWORD wrongParameter =
    87;  ///< of the operating system; of PC/SC: invalidParameter
inline constexpr DWORD revisionMismatch = 0x51A;
inline constexpr DWORD invalidHandle = 0x80100003;
inline constexpr DWORD invalidParameter = 0x80100004;
inline constexpr DWORD insufficientBuffer = 0x80100008;
inline constexpr DWORD sharingViolation = 0x8010000B;
inline constexpr DWORD unknownCard = 0x8010000D;
inline constexpr DWORD notTransacted = 0x80100016;
inline constexpr DWORD readerUnavailable = 0x80100017;
inline constexpr DWORD noService = 0x8010001D;
inline constexpr DWORD unexpected = 0x8010001F;
inline constexpr DWORD unsupportedFeature = 0x80100022;
inline constexpr DWORD directoryNotFound = 0x80100023;
inline constexpr DWORD fileNotFound = 0x80100024;
inline constexpr DWORD lostData = 0x8010002F;
inline constexpr DWORD noKeyContainer = 0x80100030;
inline constexpr DWORD unresponsiveCard = 0x80100066;
inline constexpr DWORD resetCard = 0x80100068;
inline constexpr DWORD removedCard = 0x80100069;
inline constexpr DWORD securityViolation = 0x8010006A;
inline constexpr DWORD wrongPin = 0x8010006B;
inline constexpr DWORD blockedPin = 0x8010006C;
inline constexpr DWORD cardNotAuthenticated = 0x8010006F;

struct Row {
    DWORD number;
    DWORD name;
};
inline constexpr Row numbers[] = {
    {success, static_cast<DWORD>(SCARD_S_SUCCESS)},
    {notEnoughMemory, static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY)},
    {wrongParameter, static_cast<DWORD>(ERROR_INVALID_PARAMETER)},
    {revisionMismatch, static_cast<DWORD>(ERROR_REVISION_MISMATCH)},
    {invalidHandle, static_cast<DWORD>(SCARD_E_INVALID_HANDLE)},
    {invalidParameter, static_cast<DWORD>(SCARD_E_INVALID_PARAMETER)},
    {insufficientBuffer, static_cast<DWORD>(SCARD_E_INSUFFICIENT_BUFFER)},
    {sharingViolation, static_cast<DWORD>(SCARD_E_SHARING_VIOLATION)},
    {unknownCard, static_cast<DWORD>(SCARD_E_UNKNOWN_CARD)},
    {notTransacted, static_cast<DWORD>(SCARD_E_NOT_TRANSACTED)},
    {readerUnavailable, static_cast<DWORD>(SCARD_E_READER_UNAVAILABLE)},
    {noService, static_cast<DWORD>(SCARD_E_NO_SERVICE)},
    {unexpected, static_cast<DWORD>(SCARD_E_UNEXPECTED)},
    {unsupportedFeature, static_cast<DWORD>(SCARD_E_UNSUPPORTED_FEATURE)},
    {directoryNotFound, static_cast<DWORD>(SCARD_E_DIR_NOT_FOUND)},
    {fileNotFound, static_cast<DWORD>(SCARD_E_FILE_NOT_FOUND)},
#ifdef SCARD_E_COMM_DATA_LOST  // Only the system's own headers have it.
    {lostData, static_cast<DWORD>(SCARD_E_COMM_DATA_LOST)},
#endif
    {noKeyContainer, static_cast<DWORD>(SCARD_E_NO_KEY_CONTAINER)},
    {unresponsiveCard, static_cast<DWORD>(SCARD_W_UNRESPONSIVE_CARD)},
    {resetCard, static_cast<DWORD>(SCARD_W_RESET_CARD)},
    {removedCard, static_cast<DWORD>(SCARD_W_REMOVED_CARD)},
    {securityViolation, static_cast<DWORD>(SCARD_W_SECURITY_VIOLATION)},
    {wrongPin, static_cast<DWORD>(SCARD_W_WRONG_CHV)},
    {blockedPin, static_cast<DWORD>(SCARD_W_CHV_BLOCKED)},
    {cardNotAuthenticated, static_cast<DWORD>(SCARD_W_CARD_NOT_AUTHENTICATED)},
};

constexpr bool namesHaveTheirNumbers() {
    for (const Row& row : numbers) {
        if (row.number != row.name) return false;
    }
    return true;
}
static_assert(namesHaveTheirNumbers());

}  // namespace status
