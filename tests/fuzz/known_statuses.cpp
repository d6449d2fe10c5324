#include "known_statuses.h"

#include <algorithm>
#include <iterator>

#include "hostile_card.h"

namespace fuzz {
namespace {

constexpr LONG ownStatuses[] = {
    SCARD_S_SUCCESS,          ERROR_INVALID_PARAMETER,     ERROR_NOT_ENOUGH_MEMORY,
    ERROR_REVISION_MISMATCH,  SCARD_E_DIR_NOT_FOUND,       SCARD_E_FILE_NOT_FOUND,
    SCARD_E_INVALID_HANDLE,   SCARD_E_INVALID_PARAMETER,   SCARD_E_INSUFFICIENT_BUFFER,
    SCARD_E_NO_KEY_CONTAINER, SCARD_E_UNEXPECTED,          SCARD_E_UNKNOWN_CARD,
    SCARD_W_CHV_BLOCKED,      SCARD_E_UNSUPPORTED_FEATURE, SCARD_W_SECURITY_VIOLATION,
    SCARD_W_WRONG_CHV,
};

}  // namespace

bool isKnownStatus(DWORD status) {
    const auto isThis = [&](auto known) { return static_cast<DWORD>(known) == status; };
    return std::any_of(std::begin(ownStatuses), std::end(ownStatuses), isThis) ||
           std::any_of(std::begin(readerCodes), std::end(readerCodes), isThis);
}

}  // namespace fuzz
