#include "virtual_card/commands.h"
#include "virtual_card/tlv.h"

namespace virtual_card {

namespace {

// P1 and P2 name what comes out and what goes in (ISO/IEC 7816-8, 5.1).
constexpr std::uint16_t hashOperation = 0x90A0;
constexpr std::uint16_t signatureOperation = 0x9E9A;
constexpr std::uint16_t decipherOperation = 0x8086;

constexpr std::uint8_t rsaPaddingIndicator = 0x81;
constexpr std::uint8_t pointIndicator = 0x00;

/// The key that signs, and the algorithm reference, or 00 where no MSE SET gave one.
struct SigningKey {
    const KeyRow* row = nullptr;
    std::uint8_t algorithm = 0x00;
};

SigningKey signingKey(CardState& card) {
    if (card.generation.knowsSignatureEnvironment) {
        const auto& set = card.security.environment.signature;
        return set ? SigningKey{set->key, set->algorithm} : SigningKey{};
    }
    // Where no environment can be set, the directory decides: its last VERIFY left the card there.
    for (const KeyRow& key : card.generation.keys) {
        if (key.directory == card.files.currentDirectory().identifier) return {&key};
    }
    return {};
}

bool isHashLength(const SigningKey& key, std::size_t length) {
    if (key.algorithm != 0x00) return findHash(key.algorithm)->size == length;
    for (int nibble = 0x10; nibble <= 0x60; nibble += 0x10) {
        const HashKind* kind = findHash(static_cast<std::uint8_t>(nibble));
        if (kind != nullptr && kind->size == length) return true;
    }
    return false;
}

/// PSO HASH: the template 90 { hash }, computed outside of the card.
Reply hash(CardState& card, const Command& command) {
    if (!card.generation.needsPsoHash) return {{}, sw::incorrectP1P2};
    const SigningKey key = signingKey(card);
    card.security.environment.hash.clear();
    if (key.row == nullptr) return {{}, sw::conditionsNotSatisfied};
    auto elements = parseTlvs(command.data);
    if (!elements || elements->size() != 1 || elements->front().tag != 0x90 ||
        !isHashLength(key, elements->front().value.size())) {
        return {{}, sw::incorrectData};
    }
    card.security.environment.hash = elements->front().value;
    return {};
}

Bytes sign(PrivateKey& key, const SigningKey& choice, ByteView value) {
    switch (choice.algorithm & 0x0F) {
        case 0x02:
            return key.signPkcs1(*findHash(choice.algorithm), value);
        case 0x05:
            return key.signPss(*findHash(choice.algorithm), value);
        default:
            return key.signEcdsa(value);
    }
}

Reply computeSignature(CardState& card, const Command& command) {
    const SigningKey key = signingKey(card);
    if (key.row == nullptr) return {{}, sw::conditionsNotSatisfied};
    SecurityEnvironment& environment = card.security.environment;
    if (card.generation.needsPsoHash && environment.hash.empty()) {
        return {{}, sw::conditionsNotSatisfied};
    }
    if (!card.isOpen(*key.row)) return {{}, sw::securityStatusNotSatisfied};
    if (!isHashLength(key, command.data.size())) return {{}, sw::incorrectData};
    // The hash comes twice on these cards, and has to be the same one.
    if (card.generation.needsPsoHash && command.data != environment.hash) {
        return {{}, sw::incorrectData};
    }
    environment.hash.clear();
    Bytes signature = sign(card.key(*key.row), key, command.data);
    if (card.generation.pinForOneSignature && key.row->pin == PinRole::Signature) {
        card.security.pinOf(key.row->pin).verified = false;
    }
    return {std::move(signature)};
}

Reply decipherRsa(CardState& card, const KeyRow& key, ByteView data) {
    if (data.empty() || data[0] != rsaPaddingIndicator) return {{}, sw::incorrectData};
    auto message = card.key(key).decipher(data.subspan(1));
    if (!message) return {{}, sw::incorrectData};
    return {std::move(*message)};
}

Reply agree(CardState& card, const KeyRow& key, ByteView data) {
    if (card.generation.pointHasIndicator) {
        if (data.empty() || data[0] != pointIndicator) return {{}, sw::incorrectData};
        data = data.subspan(1);
    }
    auto secret = card.key(key).agree(data);
    if (!secret) return {{}, sw::incorrectData};
    return {std::move(*secret), card.generation.ecdhStatus};
}

Reply decipher(CardState& card, const Command& command) {
    Bytes data = card.chain.value_or(Bytes{});
    card.chain.reset();
    const KeyRow* key = card.security.environment.decipherKey;
    if (key == nullptr) return {{}, sw::conditionsNotSatisfied};
    if (!card.isOpen(*key)) return {{}, sw::securityStatusNotSatisfied};
    append(data, command.data);
    if (command.cla == 0x10) {
        // No key of the card takes more than two blocks: the chain's buffer holds that much.
        if (data.size() > 2 * 255) return {{}, sw::wrongLength};
        card.chain = std::move(data);
        return {};
    }
    return isRsa(key->kind) ? decipherRsa(card, *key, data) : agree(card, *key, data);
}

}  // namespace

Reply performSecurityOperation(CardState& card, const Command& command) {
    const auto operation = static_cast<std::uint16_t>((command.p1 << 8) | command.p2);
    if (command.cla == 0x10 && operation != decipherOperation) {
        return {{}, sw::chainingNotSupported};
    }
    // An open chain goes on with the same command, or is given up.
    if (operation != decipherOperation) card.chain.reset();
    switch (operation) {
        case hashOperation:
            return hash(card, command);
        case signatureOperation:
            return computeSignature(card, command);
        case decipherOperation:
            return decipher(card, command);
        default:
            return {{}, sw::incorrectP1P2};
    }
}

}  // namespace virtual_card
