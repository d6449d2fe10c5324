// The decipher scripts: MANAGE SECURITY ENVIRONMENT (ISO/IEC 7816-4), then PERFORM SECURITY
// OPERATION, DECIPHER (ISO/IEC 7816-8), chained for RSA. They run wherever the card stands, and
// verify no PIN.
#include <stdexcept>

#include "apdu/decipher.h"
#include "apdu/set.h"
#include "card/card_operations.h"
#include "card/key_references.h"
#include "card/thrown_pointer.h"
#include "log/logger.h"
#include "platform/minidriver.h"

namespace KelmoraID {
namespace {

constexpr std::uint16_t securityStatusNotSatisfied = 0x6982;

// Fixed numbers, not derived from the key: with the padding indicator the first block fills one
// command.
constexpr std::uint16_t minimumRsaLength = 256;
constexpr std::ptrdiff_t firstBlockLength = 254;
constexpr BYTE firstBlockLe = 0xFE;  // Not sent with a chained block.
constexpr BYTE lastBlockLe = 0xFF;

// What the one-byte Lc of a command can tell.
constexpr std::size_t maximumBlockLength = 255;

void setEnvironment(FINEID::Set&& environment, SCARDHANDLE hScard,
                    const SCARD_IO_REQUEST& sendPci) {
    if (environment.Transmit(hScard, sendPci).success()) return;
    throwPointer(  // The text serves both scripts.
        "Failed to Set Security Environment for Decipher.");
}

// Sends one block and gives the data of the response, if it has any. The data of a chained block is
// never too long: the script cuts it.
std::optional<ByteVector> decipher(const ByteVector& block, BYTE Le, bool chained,
                                   SCARDHANDLE hScard, const SCARD_IO_REQUEST& sendPci) {
    if (block.size() > maximumBlockLength) throw std::runtime_error("Failed to Decipher data.");
    FINEID::Decipher command(block, Le, chained);
    command.Transmit(hScard, sendPci);
    if (!command.success()) {
        // The one std::logic_error of the card layer: the entry points tell it from all else.
        if (command.Sw1Sw2() == securityStatusNotSatisfied) {
            throw std::logic_error("Unauthenticated. Unlock PIN first.");
        }
        throw std::runtime_error("Failed to Decipher data.");
    }
    return command.responseData();
}

void logTooShort() {
    // quirk: misspelt-lines. A search in a log goes by the text.
    logDebug("Decipher failed. Message length shorther than expected.");
}

void logNoData() {
    logDebug("Decipher failed. No decrypted data returned by card.");
}

}  // namespace

ByteVector CardOperations::decipherRsa(const ByteVector& data, std::uint16_t length,
                                       DWORD dwKeySpec) {
    const BYTE selector = dwKeySpec == AT_KEYEXCHANGE ? 1 : 2;
    setEnvironment(FINEID::Set(FINEID::confidentialityTemplate, 0, selector, false), hScard,
                   sendPci);
    // The length has 16 bits and can have wrapped: it never says that there is more than there is.
    if (length < minimumRsaLength || data.size() < minimumRsaLength) {
        logTooShort();
        return {};
    }
    const auto cut = data.begin() + firstBlockLength;
    decipher({data.begin(), cut}, firstBlockLe, true, hScard, sendPci);
    const auto message = decipher({cut, data.end()}, lastBlockLe, false, hScard, sendPci);
    if (!message) {
        logNoData();
        logTooShort();
        return {};
    }
    return *message;
}

ByteVector CardOperations::decipherEcdh(const ByteVector& data, bool hasSecondSignCert) {
    setEnvironment(FINEID::Set(agreementKeyReference(hasSecondSignCert)), hScard, sendPci);
    const auto secret = decipher(data, 0x00, false, hScard, sendPci);
    if (!secret) {
        logNoData();
        return {};
    }
    return *secret;
}

}  // namespace KelmoraID
