#include "test_certificate.h"

#include <botan/base64.h>
#include <botan/ber_dec.h>

#include <stdexcept>

#include "virtual_card/pkcs15_files.h"
#include "virtual_card/test_keys.h"
#include "virtual_card/tlv.h"

namespace bench {
namespace {

using virtual_card::Bytes;
using virtual_card::tlv;

constexpr std::uint8_t sequence = 0x30;
constexpr std::uint8_t bitString = 0x03;
constexpr std::uint8_t extensions = 0xA3;

std::vector<virtual_card::TlvElement> elementsOf(const Bytes& bytes) {
    std::vector<virtual_card::TlvElement> elements;
    Botan::BER_Decoder decoder(bytes.data(), bytes.size());
    while (decoder.more_items()) {
        const Botan::BER_Object object = decoder.get_next_object();
        elements.push_back({static_cast<std::uint8_t>(object.tagging()),
                            Bytes(object.bits(), object.bits() + object.length())});
    }
    return elements;
}

Bytes withSignature(const Bytes& fields, const Bytes& algorithm, std::size_t length) {
    return tlv(sequence, {fields, algorithm, tlv(bitString, Bytes(length, 0))});
}

}  // namespace

std::string certificateOfSize(std::size_t size) {
    const Bytes whole = virtual_card::derOfPem(virtual_card::generation5Authentication.certificate);
    const auto parts = elementsOf(elementsOf(whole).at(0).value);
    Bytes fields;
    for (const auto& field : elementsOf(parts.at(0).value)) {
        if (field.tag != extensions) virtual_card::append(fields, tlv(field.tag, field.value));
    }
    fields = tlv(sequence, fields);
    const Bytes algorithm = tlv(parts.at(1).tag, parts.at(1).value);
    // The headers grow with the length: the right one is found within a few bytes.
    for (std::size_t length = 1; length <= size; ++length) {
        const std::size_t headers = withSignature(fields, algorithm, length).size() - length;
        if (length == 1 && headers + 16 < size) length = size - headers - 16;
        const Bytes made = withSignature(fields, algorithm, length);
        if (made.size() == size) {
            return "-----BEGIN CERTIFICATE-----\n" +
                   Botan::base64_encode(made.data(), made.size()) + "\n-----END CERTIFICATE-----\n";
        }
    }
    throw std::invalid_argument("no certificate has that size");
}

}  // namespace bench
