// A card and the plain things that a test does with it.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/card_types.h"
#include "virtual_card/virtual_card.h"

namespace virtual_card {

/// The generation of a card type that is known to be there.
inline const Generation& generationOf(int cardType) {
    return *findGeneration(cardType);
}

class CardSession {
public:
    explicit CardSession(int cardType) : card(generationOf(cardType)) {}

    /// One command, as hexadecimal text; the whole reply in the same form.
    std::string send(std::string_view command);
    /// A command and as many GET RESPONSE as the card asks for: all data, and the last status word.
    Reply exchange(ByteView command);
    Reply exchange(std::string_view command) { return exchange(fromHex(command)); }

    void selectRoot();
    /// Root, then ESIGN.
    void selectEsign();
    void selectDirectoryOf(PinRole role);
    /// Selects the PIN's directory and verifies the PIN. @return the status word
    std::uint16_t verify(PinRole role);
    std::uint16_t verify(PinRole role, std::string_view value);
    /// Asks for the state of the PIN in its directory.
    std::uint16_t queryPin(PinRole role);

    /// Selects a file by its path from the master file, identifier by identifier, and reads it.
    Bytes readFile(std::string_view path);
    Bytes certificate(const KeyRow& key) { return readFile(key.certificatePath); }

    /// MSE SET for a signature. @return the status word
    std::uint16_t setSignature(std::uint8_t keyReference, std::uint8_t algorithm);
    /// PSO HASH on the cards that want it, and COMPUTE DIGITAL SIGNATURE.
    Reply sign(ByteView hash);

    const PinRow& pin(PinRole role) const;
    const KeyRow& key(std::size_t index) const { return card.generation().keys[index]; }

    VirtualCard card;
};

/// A command with data, and Le where one is given.
Bytes commandOf(std::string_view header, ByteView data, std::optional<std::uint8_t> le = {});

}  // namespace virtual_card
