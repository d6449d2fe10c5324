// The signature script: MANAGE SECURITY ENVIRONMENT, then PERFORM SECURITY OPERATION (ISO/IEC
// 7816-8). It runs wherever the card stands, and verifies no PIN.
#include <algorithm>
#include <array>

#include "apdu/command_factories.h"
#include "channel/card_transaction_handler.h"

namespace KelmoraID {
namespace {

constexpr std::uint16_t instructionNotSupported = 0x6D00;

struct SignatureLength {
    CardType cardType;
    BYTE Le;
};

// The lengths of a raw ECDSA signature on the curves of these cards; all others are asked for what
// there is.
constexpr std::array<SignatureLength, 3> signatureLengths{{
    {CardType::type4, 0x60},
    {CardType::type5, 0x40},
    {CardType::type7, 0x40},
}};

BYTE expectedLength(CardType cardType) {
    for (const SignatureLength& row : signatureLengths) {
        if (row.cardType == cardType) return row.Le;
    }
    return 0x00;
}

}  // namespace

ApduResult CardTransactionHandler::computeSignature(const ByteVector& data, BYTE hashNibble,
                                                    BYTE schemeNibble, BYTE keyRef,
                                                    CardType cardType) {
    ApduResult result = send(commands::mseSetDst(hashNibble, schemeNibble, keyRef));
    // A card that does not know the command has its environment set already.
    if (!result.success() && result.Sw1Sw2() != instructionNotSupported) return result;

    if (hasSecondSigningKey(cardType)) {
        result = send(commands::psoHash(data));
        if (!result.success()) return result;
    }

    // These three types thus get the data twice, once in each command; meant so.
    ApduCommand sign = commands::psoComputeSignature(data);
    sign.Le = expectedLength(cardType);
    return send(sign);
}

}  // namespace KelmoraID
