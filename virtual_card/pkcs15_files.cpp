#include "virtual_card/pkcs15_files.h"

#include <botan/base64.h>

#include <stdexcept>

#include "virtual_card/tlv.h"

namespace virtual_card {

namespace {

constexpr std::uint8_t sequence = 0x30;
constexpr std::uint8_t integer = 0x02;
constexpr std::uint8_t bitString = 0x03;
constexpr std::uint8_t octetString = 0x04;
constexpr std::uint8_t enumerated = 0x0A;
constexpr std::uint8_t utf8String = 0x0C;
constexpr std::uint8_t printableString = 0x13;
constexpr std::uint8_t typeAttributes = 0xA1;

/// Path ::= SEQUENCE { efidOrPath OCTET STRING, ... }
Bytes pathRecord(ByteView path) {
    return tlv(sequence, {tlv(octetString, path)});
}

/// What ties a PIN, the keys that it opens and their certificates together in the directories.
Bytes objectIdentifier(std::size_t index) {
    return tlv(octetString, Bytes{static_cast<std::uint8_t>(0x45 + index)});
}

Bytes pinIdentifier(PinRole role) {
    return tlv(octetString, Bytes{static_cast<std::uint8_t>(1 + static_cast<int>(role))});
}

Bytes directoryPath(std::uint16_t directory) {
    Bytes path{0x3F, 0x00};
    if (directory != masterFile) {
        path.push_back(static_cast<std::uint8_t>(directory >> 8));
        path.push_back(static_cast<std::uint8_t>(directory & 0xFF));
    }
    return path;
}

/// CIAInfo ::= SEQUENCE { version, serialNumber, manufacturerID, label [0], cardflags, ... }
Bytes ciaInfo(const Generation& generation) {
    return tlv(sequence, {
                             tlvNumber(integer, 1),
                             tlv(octetString, fromHex(generation.serialNumber)),
                             tlvText(utf8String, "Virtual Card"),
                             tlvText(0x80, generation.label),
                             // readonly, prnGeneration
                             tlv(bitString, Bytes{0x05, 0x20}),
                             tlvText(printableString, "fi"),
                         });
}

/// The references to the directories: privateKeys [0], certificates [4], authObjects [8].
Bytes objectDirectory(const Generation& generation) {
    Bytes content = tlv(0xA0, pathRecord(fromHex(generation.privateKeyDirectoryPath)));
    append(content, fromHex(generation.odfAhead));
    append(content, tlv(0xA4, pathRecord(fromHex(generation.certificateDirectoryPath))));
    append(content, tlv(0xA8, pathRecord(fromHex(generation.authenticationDirectoryPath))));
    return content;
}

Bytes certificateEntry(const KeyRow& key, std::size_t index) {
    Bytes common = tlv(sequence, {tlvText(utf8String, key.label)});
    Bytes identifier = tlv(sequence, {objectIdentifier(index)});
    Bytes attributes = tlv(sequence, {pathRecord(fromHex(key.certificatePath))});
    return tlv(sequence, {common, identifier, tlv(typeAttributes, attributes)});
}

std::string_view nameOf(PinRole role) {
    switch (role) {
        case PinRole::Authentication:
            return "perustunnusluku";
        case PinRole::Signature:
            return "allekirjoitustunnusluku";
        case PinRole::Unblock:
            return "aktivointitunnusluku";
    }
    return "";
}

/// PinAttributes ::= SEQUENCE { pinFlags, pinType, minLength, storedLength, maxLength, pinReference
/// [0], padChar, path }
Bytes pinEntry(const Generation& generation, const PinRow& pin) {
    // case-sensitive, initialized; local in a directory of its own, needs-padding where wanted
    bool padded = generation.pinBlockLength != 0;
    int bits = 0x88 | (pin.directory != masterFile ? 0x40 : 0) | (padded ? 0x04 : 0);
    Bytes flags{static_cast<std::uint8_t>(padded ? 2 : 3), static_cast<std::uint8_t>(bits)};
    std::size_t stored = padded ? generation.pinBlockLength : pin.maximumLength;
    Bytes attributes = tlv(sequence, {
                                         tlv(bitString, flags),
                                         tlvNumber(enumerated, 1),  // ascii-numeric
                                         tlvNumber(integer, pin.minimumLength),
                                         tlvNumber(integer, static_cast<unsigned>(stored)),
                                         tlvNumber(integer, pin.maximumLength),
                                         tlvNumber(0x80, pin.reference),
                                         tlv(octetString, Bytes{0x00}),
                                         pathRecord(directoryPath(pin.directory)),
                                     });
    Bytes common = tlv(sequence, {tlvText(utf8String, nameOf(pin.role))});
    Bytes identifier = tlv(sequence, {pinIdentifier(pin.role)});
    return tlv(sequence, {common, identifier, tlv(typeAttributes, attributes)});
}

/// An RSA key is a SEQUENCE, an elliptic-curve key has the tag [0].
Bytes privateKeyEntry(const KeyRow& key, std::size_t index) {
    Bytes common = tlv(sequence, {tlvText(utf8String, key.label),
                                  tlv(bitString, Bytes{0x06, 0xC0}),  // private, modifiable
                                  pinIdentifier(key.pin)});
    Bytes usage = key.pin == PinRole::Authentication ? Bytes{0x05, 0x20}         // sign
                                                     : Bytes{0x06, 0x20, 0x40};  // nonRepudiation
    Bytes keyAttributes =
        tlv(sequence, {objectIdentifier(index), tlv(bitString, usage),
                       tlv(bitString, Bytes{0x03, 0xB8}),  // sensitive, never extractable, local
                       tlvNumber(integer, key.signReference)});
    Bytes value = pathRecord(directoryPath(key.directory));
    if (isRsa(key.kind)) {
        append(value, tlvNumber(integer, key.kind == KeyKind::Rsa3072 ? 3072 : 2048));
    }
    Bytes attributes = tlv(sequence, value);
    return tlv(isRsa(key.kind) ? sequence : std::uint8_t{0xA0},
               {common, keyAttributes, tlv(typeAttributes, attributes)});
}

Bytes withFiller(Bytes content, std::size_t filler) {
    content.insert(content.end(), filler, 0x00);
    return content;
}

}  // namespace

Bytes derOfPem(std::string_view pem) {
    std::size_t begin = pem.find("-----\n");
    std::size_t end = pem.find("\n-----END");
    if (begin == std::string_view::npos || end == std::string_view::npos || end < begin + 6) {
        throw std::invalid_argument("not a PEM text");
    }
    std::string_view body = pem.substr(begin + 6, end - begin - 6);
    auto der = Botan::base64_decode(body.data(), body.size());
    return Bytes(der.begin(), der.end());
}

void makeFiles(const Generation& generation, FileSystem& files) {
    Bytes certificates;
    Bytes privateKeys;
    for (std::size_t index = 0; index < generation.keys.size(); ++index) {
        const KeyRow& key = generation.keys[index];
        append(certificates, certificateEntry(key, index));
        append(privateKeys, privateKeyEntry(key, index));
        files.add(fromHex(key.certificatePath), derOfPem(key.key->certificate));
    }
    Bytes pins;
    for (const PinRow& pin : generation.pins) append(pins, pinEntry(generation, pin));

    files.addDirectory(fromHex("3F005016"));
    files.add(fromHex("3F005032"), ciaInfo(generation));
    files.add(fromHex("3F005031"), withFiller(objectDirectory(generation), generation.filler));
    files.add(fromHex(generation.certificateDirectoryPath),
              withFiller(certificates, generation.filler));
    files.add(fromHex(generation.authenticationDirectoryPath), withFiller(pins, generation.filler));
    files.add(fromHex(generation.privateKeyDirectoryPath), privateKeys);
}

}  // namespace virtual_card
