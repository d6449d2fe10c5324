// The signature script: MANAGE SECURITY ENVIRONMENT, then PERFORM SECURITY OPERATION (ISO/IEC
// 7816-8). It runs wherever the card stands, and verifies no PIN.
#include <utility>

#include "apdu/apdu_commands.h"
#include "card/card_transaction_handler.h"
#include "profiles/card_profiles.h"

namespace KelmoraID {
namespace {

constexpr std::uint16_t instructionNotSupported = 0x6D00;

}  // namespace

ApduResult CardTransactionHandler::computeSignature(const ByteVector& data, BYTE hashNibble,
                                                    BYTE schemeNibble, BYTE keyRef,
                                                    CardType cardType) {
    ApduResult result = send(apduCommands::mseSetDst(hashNibble, schemeNibble, keyRef));
    // A card that does not know the command has its environment set already.
    if (!result.success() && result.Sw1Sw2() != instructionNotSupported) return result;

    const CardProfile& profile = profileOf(cardType);
    if (profile.hashesBeforeSigning) {
        result = send(apduCommands::psoHash(data));
        if (!result.success()) return result;
    }

    // The signature command carries the data on every card, also after PSO HASH has given it.
    ApduCommand sign = apduCommands::psoComputeSignature(data);
    sign.Le = profile.signatureLe;
    return send(std::move(sign));
}

}  // namespace KelmoraID
