// What is answered from memory: files, containers, properties. No command goes to the card.
#include <botan/x509_key.h>
#include <botan/x509cert.h>

#include <cstring>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

class MemoryAnswers : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        card.acquireOrFail();
        card.reader.clearExchanges();
    }
    void TearDown() override { EXPECT_TRUE(card.reader.exchanges().empty()); }
    int containers() { return static_cast<int>(card.reader.card().generation().keys.size()); }
    PlatformSide card{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(EveryCard, MemoryAnswers, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

Bytes text(const char* value, std::size_t size) {
    return {value, value + size};
}

TEST_P(MemoryAnswers, RootFilesAreThoseOfTheMinidriver) {
    EXPECT_EQ(card.readFile(nullptr, "cardcf").bytes, Bytes(6, 0));
    EXPECT_EQ(card.readFile(nullptr, "cardapps").bytes, fromHex("6D73637000000000"));
    EXPECT_EQ(card.readFile(nullptr, "CARDID").bytes.size(), 16u);
    EXPECT_EQ(card.listFiles(nullptr).bytes, text("cardapps\0cardcf\0cardid\0", 24));
}

TEST_P(MemoryAnswers, CardIdentifierIsTheSerialNumberPaddedOrHashed) {
    const Bytes serial = fromHex(card.reader.card().generation().serialNumber);
    Bytes expected;
    if (serial.size() <= 16) {
        expected = serial;
    } else {
        expected = hashOf("SHA-256", std::string(serial.begin(), serial.end()));
    }
    expected.resize(16);
    EXPECT_EQ(card.readFile(nullptr, "cardid").bytes, expected);
    EXPECT_EQ(card.property(WIDE_TEXT("Card Identifier"), 0).bytes, expected);
}

TEST_P(MemoryAnswers, DirectoryListsTheCertificatesThatThereAre) {
    const Bytes expected = containers() == 3 ? text("cmapfile\0kxc00\0ksc01\0ksc02\0", 28)
                                             : text("cmapfile\0kxc00\0ksc01\0", 22);
    EXPECT_EQ(card.listFiles("mscp").bytes, expected);
    EXPECT_EQ(card.listFiles("MSCP").bytes, expected);
    EXPECT_EQ(card.readFile("mscp", "ksc02").status, containers() == 3 ? 0u : status::fileNotFound);
}

TEST_P(MemoryAnswers, CertificatesAreWholeAndOfTheCard) {
    for (BYTE index = 0; index < containers(); ++index) {
        const Botan::X509_Certificate read(card.certificate(index));
        const std::string pem = card.key(index).key->certificate;
        EXPECT_EQ(read, Botan::X509_Certificate(std::vector<std::uint8_t>(pem.begin(), pem.end())))
            << int(index);
    }
}

TEST_P(MemoryAnswers, FileInformationTellsAFixedSizeOfCertificates) {
    CARD_FILE_INFO info{};
    char directory[] = "mscp";
    char file[] = "kxc00";
    EXPECT_EQ(card.data.pfnCardGetFileInfo(&card.data, directory, file, &info), 0u);
    EXPECT_EQ(info.cbFileSize, 20u);
    EXPECT_EQ(info.dwVersion, 7u);
    char map[] = "cmapfile";
    info = {};
    EXPECT_EQ(card.data.pfnCardGetFileInfo(&card.data, directory, map, &info), 0u);
    EXPECT_EQ(info.cbFileSize, 86u * static_cast<DWORD>(containers()));
}

TEST_P(MemoryAnswers, ContainerMapTellsTheKeys) {
    const Bytes map = card.readFile("mscp", "cmapfile").bytes;
    ASSERT_EQ(map.size(), 86u * static_cast<std::size_t>(containers()));
    for (BYTE index = 0; index < containers(); ++index) {
        CONTAINER_MAP_RECORD record;
        std::memcpy(&record, map.data() + 86 * index, 86);
        EXPECT_EQ(record.wszGuid[0], WIDE_TEXT("{")[0]);
        EXPECT_EQ(record.wszGuid[37], WIDE_TEXT("}")[0]);
        EXPECT_EQ(record.wszGuid[38], 0);
        EXPECT_EQ(record.wszGuid[39], 0);
        EXPECT_EQ(record.bFlags, index == 0 ? 3 : 1);
        WORD bits = 0;
        switch (card.key(index).kind) {
            case virtual_card::KeyKind::Rsa2048:
                bits = 2048;
                break;
            case virtual_card::KeyKind::Rsa3072:
                bits = 3072;
                break;
            case virtual_card::KeyKind::P256:
                bits = 256;
                break;
            case virtual_card::KeyKind::P384:
                bits = 384;
                break;
            case virtual_card::KeyKind::P521:
                bits = 528;  // Not 521.
                break;
        }
        EXPECT_EQ(record.wKeyExchangeKeySizeBits, index == 0 ? bits : 0);
        EXPECT_EQ(record.wSigKeySizeBits, index == 0 ? 0 : bits);
    }
}

TEST_P(MemoryAnswers, ContainerInfoHoldsThePublicKeyOfTheCertificate) {
    for (BYTE index = 0; index < containers(); ++index) {
        CONTAINER_INFO info{};
        ASSERT_EQ(card.data.pfnCardGetContainerInfo(&card.data, index, 0, &info), 0u);
        EXPECT_EQ(info.dwVersion, 1u);
        const PBYTE blob = index == 0 ? info.pbKeyExPublicKey : info.pbSigPublicKey;
        const DWORD size = index == 0 ? info.cbKeyExPublicKey : info.cbSigPublicKey;
        EXPECT_EQ(index == 0 ? info.pbSigPublicKey : info.pbKeyExPublicKey, nullptr);
        EXPECT_EQ(index == 0 ? info.cbSigPublicKey : info.cbKeyExPublicKey, 0u);
        ASSERT_NE(blob, nullptr);
        const Botan::X509_Certificate certificate(card.certificate(index));
        const auto key = certificate.load_subject_public_key();
        if (card.isEcKey(index)) {
            Bytes point = key->public_key_bits();
            ASSERT_EQ(size, point.size() + 7);
            EXPECT_EQ(std::memcmp(blob, index == 0 ? "ECK3" : "ECS3", 4), 0);
            DWORD cbKey = 0;
            std::memcpy(&cbKey, blob + 4, 4);
            EXPECT_EQ(cbKey, (point.size() - 1) / 2);
            EXPECT_EQ(Bytes(blob + 8, blob + size), Bytes(point.begin() + 1, point.end()));
        } else {
            PUBLICKEYSTRUC header;
            std::memcpy(&header, blob, sizeof(header));
            EXPECT_EQ(header.bType, 6);
            EXPECT_EQ(header.aiKeyAlg, index == 0 ? 0xA400u : 0x2400u);
            RSAPUBKEY rsa;
            std::memcpy(&rsa, blob + sizeof(header), sizeof(rsa));
            EXPECT_EQ(rsa.magic, 0x31415352u);
            EXPECT_EQ(rsa.bitlen,
                      card.key(index).kind == virtual_card::KeyKind::Rsa2048 ? 2048u : 3072u);
            EXPECT_EQ(size, sizeof(header) + sizeof(rsa) + rsa.bitlen / 8);
        }
        card.data.pfnCspFree(blob);
    }
}

TEST_P(MemoryAnswers, ContainerInfoAsAPropertyHasTheSizeOfTheBuild) {
    const DWORD size = sizeof(void*) == 4 ? 24 : 40;
    EXPECT_EQ(card.containerProperty(0, WIDE_TEXT("Container Info"), size - 1).status,
              status::insufficientBuffer);
    const Answer answer = card.containerProperty(0, WIDE_TEXT("Container Info"), size);
    EXPECT_EQ(answer.status, 0u);
    ASSERT_EQ(answer.bytes.size(), size);
    CONTAINER_INFO info;
    std::memcpy(&info, answer.bytes.data(), sizeof(info));
    EXPECT_NE(info.pbKeyExPublicKey, nullptr);
    card.data.pfnCspFree(info.pbKeyExPublicKey);
}

TEST_P(MemoryAnswers, ContainersBeyondTheListAreNone) {
    CONTAINER_INFO info{};
    const auto beyond = static_cast<BYTE>(containers());
    EXPECT_EQ(card.data.pfnCardGetContainerInfo(&card.data, beyond, 0, &info),
              status::noKeyContainer);
    EXPECT_EQ(card.containerProperty(beyond, WIDE_TEXT("PIN Identifier")).status,
              status::noKeyContainer);
}

TEST_P(MemoryAnswers, EachContainerNamesItsPin) {
    for (BYTE index = 0; index < containers(); ++index) {
        const Answer answer = card.containerProperty(index, WIDE_TEXT("PIN Identifier"));
        EXPECT_EQ(toHex(answer.bytes), index == 0 ? "01000000" : "04000000");
        EXPECT_EQ(card.containerProperty(index, WIDE_TEXT("Associated ECDH Key")).status,
                  status::noKeyContainer);
    }
}

TEST_P(MemoryAnswers, PropertiesAreConstants) {
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Read Only Mode"), 0), 1u);
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Cache Mode"), 0), 3u);
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Supports Windows x.509 Enrollment"), 0), 1u);
    EXPECT_EQ(card.numberOf(WIDE_TEXT("PIN List"), 0), 0xFFFFFF1Eu);
    EXPECT_EQ(card.numberOf(WIDE_TEXT("Key Import Support"), 0), 0u);
    EXPECT_EQ(card.numberOf(WIDE_TEXT("PIN Strength Verify"), 4), 1u);
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Capabilities"), 0).bytes), "010000000100000000000000");
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Free Space"), 0).bytes),
              "01000000000000000000000000000000");
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Algorithms"), 1).bytes),
              "33004400450053005F0031003100320000000000");
    EXPECT_EQ(toHex(card.property(WIDE_TEXT("Algorithms"), 2).bytes), "0000");
    EXPECT_EQ(card.property(WIDE_TEXT("Chaining Modes"), 1).bytes.size(), 34u);
    EXPECT_EQ(card.property(WIDE_TEXT("Chaining Modes"), 3).status, status::invalidParameter);
    EXPECT_EQ(card.property(WIDE_TEXT("Card Serial Number"), 0).status, status::unsupportedFeature);
    EXPECT_EQ(card.property(WIDE_TEXT("PIN Strength Change"), 0).status,
              status::unsupportedFeature);
    EXPECT_EQ(card.property(WIDE_TEXT("Container Info"), 0).status, status::invalidParameter);
}

TEST_P(MemoryAnswers, PinInformationTellsFourPins) {
    for (DWORD pinId = 1; pinId <= 4; ++pinId) {
        const Answer answer = card.property(WIDE_TEXT("PIN Information"), pinId);
        ASSERT_EQ(answer.bytes.size(), 36u);
        PIN_INFO info;
        std::memcpy(&info, answer.bytes.data(), sizeof(info));
        EXPECT_EQ(info.dwVersion, 6u);
        EXPECT_EQ(info.PinType, AlphaNumericPinType) << "no companion application is installed";
    }
    EXPECT_EQ(card.property(WIDE_TEXT("PIN Information"), 0).status, status::invalidParameter);
    EXPECT_EQ(card.property(WIDE_TEXT("PIN Information"), 5).status, status::invalidParameter);
}

TEST_P(MemoryAnswers, KeySizesComeFromTheContainersOrTheCurves) {
    CARD_KEY_SIZES sizes{};
    sizes.dwVersion = 1;
    EXPECT_EQ(card.data.pfnCardQueryKeySizes(&card.data, AT_ECDSA_P521, 0, &sizes), 0u);
    EXPECT_EQ(sizes.dwMaximumBitlen, 521u);
    EXPECT_EQ(sizes.dwIncrementalBitlen, 1u);
    CARD_KEY_SIZES newer{};
    newer.dwVersion = 2;
    EXPECT_EQ(card.data.pfnCardQueryKeySizes(&card.data, AT_KEYEXCHANGE, 0, &newer),
              status::revisionMismatch);
    EXPECT_NE(newer.dwMaximumBitlen, 0u) << "filled all the same";
    EXPECT_EQ(card.data.pfnCardQueryKeySizes(&card.data, 9, 0, &sizes), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardQueryKeySizes(&card.data, 0, 0, &sizes), status::invalidParameter);
}

TEST_P(MemoryAnswers, AllocationsThatFailAreStatusEight) {
    PlatformSide::failAllocation(1);
    EXPECT_EQ(card.readFile("mscp", "kxc00").status, status::notEnoughMemory);
    PlatformSide::failAllocation(1);
    EXPECT_EQ(card.listFiles(nullptr).status, status::notEnoughMemory);
    PlatformSide::failAllocation(1);
    EXPECT_EQ(card.property(WIDE_TEXT("PIN List"), 0).status, status::notEnoughMemory);
    PlatformSide::failAllocation(1);
    CONTAINER_INFO info{};
    EXPECT_EQ(card.data.pfnCardGetContainerInfo(&card.data, 0, 0, &info), status::notEnoughMemory);
    EXPECT_EQ(info.pbKeyExPublicKey, nullptr);
}

}  // namespace
}  // namespace boundary
