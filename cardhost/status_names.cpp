#include "status_names.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include <fmt/format.h>

namespace cardhost {

namespace {

struct StatusName {
    std::uint32_t status;
    const char* name;
    const char* meaning;
};

constexpr StatusName statusNames[] = {
    {0x00000000, "SCARD_S_SUCCESS", "done"},
    {0x00000002, "ERROR_FILE_NOT_FOUND", "no such file"},
    {0x00000008, "ERROR_NOT_ENOUGH_MEMORY", "no memory"},
    {0x00000057, "ERROR_INVALID_PARAMETER", "an argument that cannot be served"},
    {0x0000051A, "ERROR_REVISION_MISMATCH", "a record of a version that is not known"},
    {0x80100001, "SCARD_F_INTERNAL_ERROR", "an inner failure"},
    {0x80100002, "SCARD_E_CANCELLED", "cancelled"},
    {0x80100003, "SCARD_E_INVALID_HANDLE", "a handle that is not valid"},
    {0x80100004, "SCARD_E_INVALID_PARAMETER", "an argument that is not valid"},
    {0x80100006, "SCARD_E_NO_MEMORY", "no memory"},
    {0x80100008, "SCARD_E_INSUFFICIENT_BUFFER", "a buffer or a block that is too short"},
    {0x80100009, "SCARD_E_UNKNOWN_READER", "no such reader"},
    {0x8010000A, "SCARD_E_TIMEOUT", "no answer in time"},
    {0x8010000B, "SCARD_E_SHARING_VIOLATION", "another program holds the card"},
    {0x8010000C, "SCARD_E_NO_SMARTCARD", "no card in the reader"},
    {0x8010000D, "SCARD_E_UNKNOWN_CARD", "a card that this driver does not know"},
    {0x8010000F, "SCARD_E_PROTO_MISMATCH", "no common protocol with the card"},
    {0x80100010, "SCARD_E_NOT_READY", "the reader is not ready"},
    {0x80100013, "SCARD_F_COMM_ERROR", "a failure of the connection to the card"},
    {0x80100016, "SCARD_E_NOT_TRANSACTED", "the command did not get through to the card"},
    {0x80100017, "SCARD_E_READER_UNAVAILABLE", "the reader is gone"},
    {0x8010001D, "SCARD_E_NO_SERVICE", "the smart-card service does not run"},
    {0x8010001E, "SCARD_E_SERVICE_STOPPED", "the smart-card service was stopped"},
    {0x8010001F, "SCARD_E_UNEXPECTED", "a failure that has no status of its own"},
    {0x80100022, "SCARD_E_UNSUPPORTED_FEATURE", "not offered for this card"},
    {0x80100023, "SCARD_E_DIR_NOT_FOUND", "no such directory"},
    {0x80100024, "SCARD_E_FILE_NOT_FOUND", "no such file"},
    {0x80100027, "SCARD_E_NO_ACCESS", "access denied"},
    {0x8010002A, "SCARD_E_INVALID_CHV", "not a valid PIN"},
    {0x8010002E, "SCARD_E_NO_READERS_AVAILABLE", "no reader is connected"},
    {0x80100030, "SCARD_E_NO_KEY_CONTAINER", "no such key container"},
    {0x80100065, "SCARD_W_UNSUPPORTED_CARD", "a card that the reader does not support"},
    {0x80100066, "SCARD_W_UNRESPONSIVE_CARD", "the card does not answer"},
    {0x80100067, "SCARD_W_UNPOWERED_CARD", "the card has no power"},
    {0x80100068, "SCARD_W_RESET_CARD", "the card was reset"},
    {0x80100069, "SCARD_W_REMOVED_CARD", "the card was removed"},
    {0x8010006A, "SCARD_W_SECURITY_VIOLATION", "the PIN of this key is not verified"},
    {0x8010006B, "SCARD_W_WRONG_CHV", "the PIN is wrong"},
    {0x8010006C, "SCARD_W_CHV_BLOCKED", "the PIN is blocked"},
    {0x8010006F, "SCARD_W_CARD_NOT_AUTHENTICATED", "no PIN was presented"},
};

}  // namespace

std::string statusMeaning(DWORD status) {
    const auto number = static_cast<std::uint32_t>(status);
    const auto* row = std::find_if(std::begin(statusNames), std::end(statusNames),
                                   [&](const StatusName& name) { return name.status == number; });
    return row == std::end(statusNames) ? "" : fmt::format("{} ({})", row->name, row->meaning);
}

std::string statusText(DWORD status) {
    const std::string meaning = statusMeaning(status);
    return fmt::format("{:#010x}{}{}", static_cast<std::uint32_t>(status),
                       meaning.empty() ? "" : " ", meaning);
}

}  // namespace cardhost
