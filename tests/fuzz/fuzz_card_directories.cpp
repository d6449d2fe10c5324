// The ways on a hostile card's file system: EF.CIAInfo, the object directories, the certificates.
#include "card/card_transaction_handler.h"
#include "fuzz_target.h"
#include "hostile_card.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::uint8_t operation = input.byte();
    const std::uint8_t index = input.byte();
    fuzz::HostileCard hostile(input);
    KelmoraID::CardTransactionHandler card(fuzz::HostileCard::cardHandle);
    card.setTrace((operation & 0x80) != 0);
    switch ((operation & 0x7F) % 7) {
        case 0: {
            KelmoraID::ByteVector serialNumber;
            std::string label;
            if (!card.GetSerialNumberAndLabelFromCIAInfo(serialNumber, label)) {
                fuzz::require(serialNumber.empty() && label.empty(),
                              "outputs are written on success only");
            }
            break;
        }
        case 1:
            card.GetCertificate(index);
            break;
        case 2:
            card.GetPinMinMaxLength(index);
            break;
        case 3:
            card.GetDirectories(false, true, index == 0xFF ? 0x7FFFFFFF : index);
            break;
        case 4:
            card.ReadFile({0x3F, 0x00, 0x50, 0x16, 0x43, index});
            break;
        case 5:
            card.readBinary(std::uint32_t{index} * 300);
            break;
        default:
            card.computeSignature(KelmoraID::ByteVector(index, 0x11), 0x40, index % 2 ? 0x02 : 0x05,
                                  0x82, KelmoraID::CardType::type5);
            break;
    }
    return 0;
}
