#include "apdu/status_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "apdu/status_word_table.h"
#include "platform/win32.h"

namespace KelmoraID {
namespace {

struct Row {
    std::uint16_t Sw1Sw2;
    std::string_view type;
    std::uint32_t severity;
    LONG platformCode;
    std::string_view text;
};

// The order matters: of two rows of one status word the last wins. The rows of 6100 and 6C00 end in
// a blank, for a number. quirk: two-rows-of-6982. The first never takes effect.
constexpr std::array<Row, 11> rows{{
    {0x9000, "CommonError", 0, 0, "Command processed without error"},
    {0x6700, "CommonError", 3, SCARD_E_INVALID_PARAMETER, "Incorrect length. Lc > 30."},
    {0x6982, "SignError", 3, SCARD_E_SHARING_VIOLATION,
     "Security conditions not satisfied, for example: Security attribute not fulfilled for private "
     "key, Error during secure messaging, PIN protecting the signature key has not been presented, "
     "Integrity of DTBS check failed"},
    {0x6985, "SignError", 3, SCARD_W_CARD_NOT_AUTHENTICATED,
     "Conditions of use not satisfied, for example: No hashed message available from PSO–Hash "
     "command, No algorithm or private key in the current SE’s DST, Algorithm not recognized, "
     "Private key in current SE’s DST is not a digital signature key, Private key in current SE’s "
     "DST has not been initialized, PIN protecting the signature key has not been changed since "
     "personalization, Security attribute for the current contact/contactless interface is absent"},
    {0x6986, "SignError", 3, SCARD_E_UNSUPPORTED_FEATURE,
     "Command not allowed (use of SHA-1 has been prohibited by the cryptographic environment "
     "parameters data object)"},
    {0x6A84, "SignError", 2, SCARD_W_SECURITY_VIOLATION,
     "Signature counter exceeds maximum allowed value."},
    {0x6A86, "SignError", 3, SCARD_E_INVALID_PARAMETER, "Incorrect P1, P2. Must be 9Eh 9Ah"},
    {0x6A88, "SignError", 3, SCARD_E_FILE_NOT_FOUND, "Referenced data not found"},
    {0x6100, "GetResponseError", 1, 0, "Data bytes still waiting in the card: "},
    {0x6C00, "GetResponseError", 1, 0, "if Le > Licc = "},
    {0x6982, "GetResponseError", 2, SCARD_W_SECURITY_VIOLATION, "Security status not satisfied"},
}};

const Row* rowOf(std::uint16_t Sw1Sw2) {
    const auto last = std::find_if(rows.rbegin(), rows.rend(),
                                   [&](const Row& row) { return row.Sw1Sw2 == Sw1Sw2; });
    return last == rows.rend() ? nullptr : &*last;
}

StatusWordInfo infoOf(const Row& row) {
    return {row.Sw1Sw2, row.type,    row.severity, static_cast<std::uint32_t>(row.platformCode),
            row.text,   std::nullopt};
}

constinit StatusWordTable processTable;

}  // namespace

StatusWordInfo StatusWordTable::lookup(std::uint16_t Sw1Sw2) {
    if (const Row* row = rowOf(Sw1Sw2)) return infoOf(*row);

    const auto SW1 = static_cast<std::uint8_t>(Sw1Sw2 >> 8);
    const auto SW2 = static_cast<std::uint8_t>(Sw1Sw2 & 0xFF);
    StatusWordInfo info;
    if (const Row* base = rowOf(static_cast<std::uint16_t>(SW1 << 8))) {
        info = infoOf(*base);
    } else if (hasEmptyRow_[SW1].exchange(true) && SW2 == 0) {
        // quirk: empty-status-row. It stands in the table by now, and is found without its number.
        return info;
    }
    info.Sw1Sw2 = Sw1Sw2;
    info.number = SW2;
    return info;
}

std::string StatusWordInfo::text() const {
    return number ? fmt::format("{}{}", rowText, *number) : std::string(rowText);
}

StatusWordInfo lookupStatusWord(std::uint16_t Sw1Sw2) {
    return processTable.lookup(Sw1Sw2);
}

}  // namespace KelmoraID
