#include "virtual_card/commands.h"
#include "virtual_card/tlv.h"

namespace virtual_card {

namespace {

constexpr std::uint8_t setForComputation = 0x41;  // P1
constexpr std::uint8_t signatureTemplate = 0xB6;  // P2
constexpr std::uint8_t confidentialityTemplate = 0xB8;

constexpr std::uint8_t algorithmTag = 0x80;
constexpr std::uint8_t keyTag = 0x84;

/// The two references that a template carries, in either order.
struct References {
    Bytes algorithm;
    std::uint8_t key;
};

std::optional<References> readTemplate(ByteView data) {
    auto elements = parseTlvs(data);
    if (!elements || elements->size() != 2) return std::nullopt;
    References references{};
    bool hasKey = false;
    for (const TlvElement& element : *elements) {
        if (element.tag == algorithmTag) {
            references.algorithm = element.value;
        } else if (element.tag == keyTag && element.value.size() == 1) {
            references.key = element.value[0];
            hasKey = true;
        }
    }
    if (!hasKey || references.algorithm.empty()) return std::nullopt;
    return references;
}

bool isSignatureAlgorithm(const KeyRow& key, std::uint8_t algorithm) {
    const std::uint8_t scheme = algorithm & 0x0F;
    if (findHash(algorithm) == nullptr) return false;
    return isRsa(key.kind) ? scheme == 0x02 || scheme == 0x05 : scheme == 0x04;
}

bool isDecipherAlgorithm(const KeyRow& key, const Bytes& algorithm) {
    return algorithm == (isRsa(key.kind) ? Bytes{0x1A} : Bytes{0xFF, 0x30, 0x04, 0x00});
}

Reply setSignature(CardState& card, const References& references) {
    for (const KeyRow& key : card.generation.keys) {
        if (key.signReference == references.key && references.algorithm.size() == 1 &&
            isSignatureAlgorithm(key, references.algorithm[0])) {
            card.security.environment.signature = {&key, references.algorithm[0]};
            return {};
        }
    }
    return {{}, sw::referenceNotFound};
}

Reply setDecipher(CardState& card, const References& references) {
    for (const KeyRow& key : card.generation.keys) {
        if (key.decipherReference != noReference && key.decipherReference == references.key &&
            isDecipherAlgorithm(key, references.algorithm)) {
            card.security.environment.decipherKey = &key;
            return {};
        }
    }
    return {{}, sw::referenceNotFound};
}

}  // namespace

Reply manageSecurityEnvironment(CardState& card, const Command& command) {
    const bool isSignature = command.p2 == signatureTemplate;
    if (isSignature && !card.generation.knowsSignatureEnvironment) {
        return {{}, sw::instructionNotSupported};
    }
    // A SET that fails leaves no environment behind: what was set before is broken as well.
    card.security.environment = {};
    if (command.p1 != setForComputation ||
        (!isSignature && command.p2 != confidentialityTemplate)) {
        return {{}, sw::incorrectP1P2};
    }
    auto references = readTemplate(command.data);
    if (!references) return {{}, sw::incorrectData};
    return isSignature ? setSignature(card, *references) : setDecipher(card, *references);
}

}  // namespace virtual_card
