// The kinds of case that the public certification test of Windows' minidrivers goes through, as far
// as they fit a read-only card: calls with bad arguments, and a walk through a card that was made
// ready beforehand, by nothing but what the card says of itself. The test itself is not here.
#include <algorithm>
#include <cstring>
#include <functional>

#include "platform_side.h"

namespace boundary {
namespace {

constexpr DWORD invalidParameter = 0x80100004;
constexpr DWORD unexpected = 0x8010001F;
constexpr DWORD unsupported = 0x80100022;
constexpr DWORD directoryNotFound = 0x80100023;
constexpr DWORD fileNotFound = 0x80100024;
constexpr DWORD noContainer = 0x80100030;
constexpr DWORD wrongPin = 0x8010006B;
constexpr DWORD revisionMismatch = 0x51A;

class Certification : public ::testing::TestWithParam<int> {
protected:
    struct Call {
        const char* what;
        std::function<DWORD()> act;
        DWORD expected;
    };
    void SetUp() override {
        card.acquireOrFail();
        card.reader.clearExchanges();
    }
    void expectAll(const std::vector<Call>& calls) {
        for (const Call& call : calls) EXPECT_EQ(call.act(), call.expected) << call.what;
        EXPECT_TRUE(card.reader.exchanges().empty()) << "no bad argument reaches the card";
    }

    PlatformSide card{GetParam()};
    CARD_DATA& data = card.data;
    char mscp[5] = "mscp";
    char map[9] = "cmapfile";
    char none[1] = "";
    char unknown[8] = "unknown";
    WCHAR user[5] = WIDE_TEXT("user");
    BYTE bytes[64] = {};
    PBYTE buffer = nullptr;
    LPSTR names = nullptr;
    DWORD size = 0;
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Certification, ::testing::ValuesIn(allCardTypes));

TEST_P(Certification, NoRecordIsABadArgumentEverywhere) {
    CARD_CAPABILITIES capabilities{};
    CARD_FREE_SPACE_INFO space{};
    CARD_FILE_INFO info{};
    CARD_KEY_SIZES sizes{};
    CONTAINER_INFO container{};
    CARD_SIGNING_INFO signing{};
    CARD_RSA_DECRYPT_INFO decryption{};
    const LPCWSTR name = WIDE_TEXT("PIN List");
    std::vector<Call> calls{
        {"CardDeleteContext", [&] { return data.pfnCardDeleteContext(nullptr); }, invalidParameter},
        {"CardQueryCapabilities",
         [&] { return data.pfnCardQueryCapabilities(nullptr, &capabilities); }, invalidParameter},
        {"CardDeleteContainer", [&] { return data.pfnCardDeleteContainer(nullptr, 0, 0); },
         invalidParameter},
        {"CardCreateContainer",
         [&] { return data.pfnCardCreateContainer(nullptr, 0, 0, 1, 2048, nullptr); },
         invalidParameter},
        {"CardGetContainerInfo",
         [&] { return data.pfnCardGetContainerInfo(nullptr, 0, 0, &container); }, invalidParameter},
        {"CardAuthenticatePin",
         [&] { return data.pfnCardAuthenticatePin(nullptr, user, bytes, 4, nullptr); },
         invalidParameter},
        {"CardGetChallenge", [&] { return data.pfnCardGetChallenge(nullptr, &buffer, &size); },
         unsupported},
        {"CardUnblockPin",
         [&] { return data.pfnCardUnblockPin(nullptr, user, bytes, 8, bytes, 4, 3, 0); },
         invalidParameter},
        {"CardReadFile",
         [&] { return data.pfnCardReadFile(nullptr, mscp, map, 0, &buffer, &size); },
         invalidParameter},
        {"CardWriteFile", [&] { return data.pfnCardWriteFile(nullptr, mscp, map, 0, bytes, 4); },
         invalidParameter},
        {"CardEnumFiles", [&] { return data.pfnCardEnumFiles(nullptr, mscp, &names, &size, 0); },
         invalidParameter},
        {"CardGetFileInfo", [&] { return data.pfnCardGetFileInfo(nullptr, mscp, map, &info); },
         invalidParameter},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(nullptr, 0, &space); },
         invalidParameter},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(nullptr, 1, 0, &sizes); },
         invalidParameter},
        {"CardSignData", [&] { return data.pfnCardSignData(nullptr, &signing); }, invalidParameter},
        {"CardRSADecrypt", [&] { return data.pfnCardRSADecrypt(nullptr, &decryption); },
         invalidParameter},
        {"CardAuthenticateEx",
         [&] {
             return data.pfnCardAuthenticateEx(nullptr, 1, 0, bytes, 4, nullptr, nullptr, nullptr);
         },
         invalidParameter},
        {"CardDeauthenticateEx", [&] { return data.pfnCardDeauthenticateEx(nullptr, 2, 0); },
         invalidParameter},
        {"CardGetContainerProperty",
         [&] { return data.pfnCardGetContainerProperty(nullptr, 0, name, bytes, 64, &size, 0); },
         invalidParameter},
        {"CardSetContainerProperty",
         [&] { return data.pfnCardSetContainerProperty(nullptr, 0, name, bytes, 4, 0); },
         invalidParameter},
        {"CardGetProperty",
         [&] { return data.pfnCardGetProperty(nullptr, name, bytes, 64, &size, 0); },
         invalidParameter},
        {"CardSetProperty", [&] { return data.pfnCardSetProperty(nullptr, name, bytes, 4, 0); },
         invalidParameter},
        {"CardDestroyKey", [&] { return data.pfnCardDestroyKey(nullptr, 0); }, unexpected},
    };
    if (card.isEcKey(0)) {
        CARD_DH_AGREEMENT_INFO agreement{};
        CARD_DERIVE_KEY derivation{};
        calls.push_back(
            {"CardConstructDHAgreement",
             [=, this]() mutable { return data.pfnCardConstructDHAgreement(nullptr, &agreement); },
             invalidParameter});
        calls.push_back(
            {"CardDeriveKey",
             [=, this]() mutable { return data.pfnCardDeriveKey(nullptr, &derivation); },
             invalidParameter});
        calls.push_back({"CardDestroyDHAgreement",
                         [&] { return data.pfnCardDestroyDHAgreement(nullptr, 1, 0); },
                         invalidParameter});
    }
    expectAll(calls);
}

TEST_P(Certification, NowhereToPutAnAnswerIsABadArgument) {
    expectAll({
        {"CardQueryCapabilities", [&] { return data.pfnCardQueryCapabilities(&data, nullptr); },
         invalidParameter},
        {"CardGetContainerInfo", [&] { return data.pfnCardGetContainerInfo(&data, 0, 0, nullptr); },
         invalidParameter},
        {"CardReadFile, data",
         [&] { return data.pfnCardReadFile(&data, mscp, map, 0, nullptr, &size); },
         invalidParameter},
        {"CardReadFile, size",
         [&] { return data.pfnCardReadFile(&data, mscp, map, 0, &buffer, nullptr); },
         invalidParameter},
        {"CardEnumFiles, names",
         [&] { return data.pfnCardEnumFiles(&data, mscp, nullptr, &size, 0); }, invalidParameter},
        {"CardEnumFiles, size",
         [&] { return data.pfnCardEnumFiles(&data, mscp, &names, nullptr, 0); }, invalidParameter},
        {"CardGetFileInfo", [&] { return data.pfnCardGetFileInfo(&data, mscp, map, nullptr); },
         invalidParameter},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(&data, 0, nullptr); },
         invalidParameter},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(&data, 1, 0, nullptr); },
         invalidParameter},
        {"CardSignData", [&] { return data.pfnCardSignData(&data, nullptr); }, invalidParameter},
        {"CardRSADecrypt", [&] { return data.pfnCardRSADecrypt(&data, nullptr); },
         invalidParameter},
        {"CardGetProperty, size",
         [&] {
             return data.pfnCardGetProperty(&data, WIDE_TEXT("PIN List"), bytes, 64, nullptr, 0);
         },
         invalidParameter},
        {"CardGetContainerProperty, size",
         [&] {
             return data.pfnCardGetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), bytes,
                                                     64, nullptr, 0);
         },
         invalidParameter},
    });
}

TEST_P(Certification, FlagsThatNobodyKnowsAreBadArguments) {
    CARD_FREE_SPACE_INFO space{};
    CARD_KEY_SIZES sizes{};
    CONTAINER_INFO container{};
    CARD_SIGNING_INFO signing{};
    signing.dwVersion = 1;
    signing.dwSigningFlags = 0x80000000;
    expectAll({
        {"CardGetContainerInfo",
         [&] { return data.pfnCardGetContainerInfo(&data, 0, 1, &container); }, invalidParameter},
        {"CardReadFile", [&] { return data.pfnCardReadFile(&data, mscp, map, 1, &buffer, &size); },
         invalidParameter},
        {"CardEnumFiles", [&] { return data.pfnCardEnumFiles(&data, mscp, &names, &size, 1); },
         invalidParameter},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(&data, 1, &space); },
         invalidParameter},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(&data, 1, 1, &sizes); },
         invalidParameter},
        {"CardSignData", [&] { return data.pfnCardSignData(&data, &signing); }, invalidParameter},
        {"CardGetProperty", [&] { return card.property(WIDE_TEXT("PIN List"), 1).status; },
         invalidParameter},
        {"CardGetContainerProperty",
         [&] {
             return data.pfnCardGetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), bytes,
                                                     64, &size, 1);
         },
         invalidParameter},
    });
}

TEST_P(Certification, RecordsOfALaterVersionAreToldApart) {
    CARD_CAPABILITIES capabilities{2, 0, 0};
    CARD_FREE_SPACE_INFO space{};
    space.dwVersion = 2;
    CARD_FILE_INFO info{};
    info.dwVersion = 2;
    CARD_KEY_SIZES sizes{};
    sizes.dwVersion = 2;
    CONTAINER_INFO container{};
    container.dwVersion = 2;
    CARD_SIGNING_INFO signing{};
    signing.dwVersion = 3;
    CARD_RSA_DECRYPT_INFO decryption{};
    decryption.dwVersion = 3;
    expectAll({
        {"CardQueryCapabilities",
         [&] { return data.pfnCardQueryCapabilities(&data, &capabilities); }, revisionMismatch},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(&data, 0, &space); },
         revisionMismatch},
        {"CardGetFileInfo", [&] { return data.pfnCardGetFileInfo(&data, mscp, map, &info); },
         revisionMismatch},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(&data, 1, 0, &sizes); },
         revisionMismatch},
        {"CardGetContainerInfo",
         [&] { return data.pfnCardGetContainerInfo(&data, 0, 0, &container); }, revisionMismatch},
        {"CardSignData", [&] { return data.pfnCardSignData(&data, &signing); }, revisionMismatch},
        {"CardRSADecrypt", [&] { return data.pfnCardRSADecrypt(&data, &decryption); },
         revisionMismatch},
    });
}

TEST_P(Certification, NamesThatAreNotThereAreToldApart) {
    CARD_FILE_INFO infos[3] = {};  // One for each call: the version in it is written.
    CONTAINER_INFO container{};
    expectAll({
        {"no such file", [&] { return card.readFile("mscp", "unknown").status; }, fileNotFound},
        {"a file of the root in mscp", [&] { return card.readFile("mscp", "cardid").status; },
         fileNotFound},
        {"no such directory", [&] { return card.readFile("unknown", "cmapfile").status; },
         directoryNotFound},
        {"no name", [&] { return card.readFile("mscp", "").status; }, invalidParameter},
        {"no such directory to list", [&] { return card.listFiles("unknown").status; },
         directoryNotFound},
        {"no name of a directory", [&] { return card.listFiles("").status; }, invalidParameter},
        {"no such file to tell of",
         [&] { return data.pfnCardGetFileInfo(&data, mscp, unknown, &infos[0]); }, fileNotFound},
        {"no such directory to tell of",
         [&] { return data.pfnCardGetFileInfo(&data, unknown, map, &infos[1]); },
         directoryNotFound},
        {"no name to tell of",
         [&] { return data.pfnCardGetFileInfo(&data, mscp, none, &infos[2]); }, invalidParameter},
        {"no such container",
         [&] { return data.pfnCardGetContainerInfo(&data, card.containers(), 0, &container); },
         noContainer},
        {"container 255", [&] { return data.pfnCardGetContainerInfo(&data, 255, 0, &container); },
         noContainer},
        {"no such property", [&] { return card.property(WIDE_TEXT("unknown"), 0).status; },
         invalidParameter},
        {"no name of a property",
         [&] { return data.pfnCardGetProperty(&data, nullptr, bytes, 64, &size, 0); },
         invalidParameter},
        {"no such user",
         [&] {
             WCHAR nobody[] = WIDE_TEXT("nobody");
             return data.pfnCardAuthenticatePin(&data, nobody, bytes, 4, nullptr);
         },
         invalidParameter},
        {"PIN 0", [&] { return card.authenticate(0, "1234"); }, invalidParameter},
        {"PIN 5", [&] { return card.authenticate(5, "1234"); }, invalidParameter},
    });
}

// The names of a directory's listing.
std::vector<std::string> namesOf(const Bytes& listing) {
    std::vector<std::string> names;
    for (std::size_t at = 0; at + 1 < listing.size();) {
        names.emplace_back(reinterpret_cast<const char*>(listing.data() + at));
        at += names.back().size() + 1;
    }
    EXPECT_EQ(listing.back(), 0) << "a last terminator ends the list";
    return names;
}

TEST_P(Certification, EveryListedFileCanBeReadAndToldOf) {
    for (const char* directory : {static_cast<const char*>(nullptr), "mscp"}) {
        const std::vector<std::string> files = namesOf(card.listFiles(directory).bytes);
        EXPECT_FALSE(files.empty());
        for (std::string file : files) {
            const Answer answer = card.readFile(directory, file.c_str());
            EXPECT_EQ(answer.status, 0u) << file;
            EXPECT_FALSE(answer.bytes.empty()) << file;
            CARD_FILE_INFO info{};
            EXPECT_EQ(
                data.pfnCardGetFileInfo(&data, const_cast<LPSTR>(directory), file.data(), &info),
                0u)
                << file;
            EXPECT_EQ(card.readFile(directory, file.c_str()).bytes, answer.bytes) << file;
        }
    }
}

TEST_P(Certification, EveryContainerOfTheMapHasItsCertificateAndSignsByItsOwnPin) {
    const Bytes map_ = card.readFile("mscp", "cmapfile").bytes;
    ASSERT_EQ(map_.size() % sizeof(CONTAINER_MAP_RECORD), 0u);
    const auto count = static_cast<BYTE>(map_.size() / sizeof(CONTAINER_MAP_RECORD));
    const std::vector<std::string> files = namesOf(card.listFiles("mscp").bytes);
    for (BYTE index = 0; index < count; ++index) {
        CONTAINER_MAP_RECORD record;
        std::memcpy(&record, map_.data() + index * sizeof(record), sizeof(record));
        const bool isExchange = record.wKeyExchangeKeySizeBits != 0;
        const std::string file = (isExchange ? "kxc0" : "ksc0") + std::to_string(index);
        EXPECT_NE(std::find(files.begin(), files.end(), file), files.end()) << file;
        const Answer pin = card.containerProperty(index, WIDE_TEXT("PIN Identifier"));
        ASSERT_EQ(pin.bytes.size(), 4u);
        const PIN_ID pinId = pin.bytes[0];
        EXPECT_NE(card.numberOf(WIDE_TEXT("PIN List"), 0) & (1u << pinId), 0u);

        const std::string value = card.pin(card.key(index).pin);
        DWORD attempts = 0;
        EXPECT_EQ(card.authenticate(pinId, "999999", &attempts), wrongPin);
        EXPECT_GT(attempts, 0u);
        EXPECT_EQ(card.authenticate(pinId, value), 0u);
        const Answer signature = card.signMessage(index, "a message");
        ASSERT_EQ(signature.status, 0u);
        const Bytes certificate = card.readFile("mscp", file.c_str()).bytes;
        EXPECT_TRUE(isSignature(certificate,
                                card.isEcKey(index) ? "EMSA1(SHA-256)" : "EMSA3(SHA-256)",
                                "a message", signature.bytes));
    }
}

TEST_P(Certification, AcquisitionsOneAfterTheOtherGiveTheSame) {
    const Bytes first = card.readFile("mscp", "cmapfile").bytes;
    for (int round = 0; round < 20; ++round) {
        card.release();
        card.acquireOrFail();
        ASSERT_EQ(card.readFile("mscp", "cmapfile").bytes, first) << round;
    }
    EXPECT_TRUE(card.signsTruly(0));
}

}  // namespace
}  // namespace boundary
