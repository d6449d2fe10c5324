#include <cstdio>

#include "keys/keys_fixture.h"
#include "platform/wide_text.h"
#include "profiles/card_profiles.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::counting;
using testing::exited;
using testing::hexOf;
using testing::KeysFixture;
using testing::LogLines;
using testing::PlatformRecord;
using testing::reversed;
using testing::TestKey;

constexpr const char* scope = "CardSignData";
constexpr DWORD paddingInfoPresent = 0x40000000;
constexpr DWORD bufferSizeOnly = 0x20000000;
constexpr DWORD pkcs1 = 2;
constexpr DWORD pss = 4;

const LogLines rsaByAlgId = {{"DEBUG", "CardSignData: pInfo->aiHashAlg (if)"}};
const LogLines eccBranch = {{"DEBUG", "CardSignData: signsWithECC (if)"}};

// A request that is in order but for what a test changes.
struct Request {
    Request(BYTE container, DWORD keySpec, std::size_t length) : data(counting(length)) {
        info.dwVersion = 2;
        info.bContainerIndex = container;
        info.dwKeySpec = keySpec;
        info.pbData = data.data();
        info.cbData = static_cast<DWORD>(data.size());
        info.pbSignedData = &untouched;
        info.cbSignedData = 0xDDDD;
    }
    ~Request() {
        if (info.pbSignedData != &untouched) release(info.pbSignedData);
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    void pad(DWORD type, LPCWSTR name) {
        padding.pszAlgId = name;
        info.dwSigningFlags |= paddingInfoPresent;
        info.dwPaddingType = type;
        info.pPaddingInfo = &padding;
    }
    DWORD run(KeysFixture& keys) {
        release = keys.data->pfnCspFree;
        return CardSignData(keys.data, &info);
    }
    ByteVector signature() const {
        return {info.pbSignedData, info.pbSignedData + info.cbSignedData};
    }
    bool hasNoSignature() const {
        return info.pbSignedData == &untouched && info.cbSignedData == 0xDDDD;
    }

    ByteVector data;
    BYTE untouched = 0;
    BCRYPT_PSS_PADDING_INFO padding{nullptr, 99};
    CARD_SIGNING_INFO info{};
    PFN_CSP_FREE release = nullptr;
};

std::string entered(const CARD_SIGNING_INFO& info) {
    char pointer[32] = "0x0";
    if (info.pPaddingInfo != nullptr) {
        std::snprintf(pointer, sizeof(pointer), "%p", info.pPaddingInfo);
    }
    char text[400];
    std::snprintf(text, sizeof(text),
                  "Entering the function, with parameters, bContainerIndex:'%u' "
                  "dwSigningFlags:'0x%08x', dwVersion:'%u', dwKeySpec:'%u' \n "
                  "dwPaddingType:'0x%08x', pPaddingInfo:'%s', aiHashAlg:'%u' ",
                  info.bContainerIndex, info.dwSigningFlags, info.dwVersion, info.dwKeySpec,
                  info.dwPaddingType, pointer, info.aiHashAlg);
    return text;
}

std::string dataLine(const ByteVector& data) {
    std::string text;
    for (const BYTE byte : data) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%02x ", byte);
        text += digits;
    }
    if (!text.empty()) text.pop_back();
    return "cbData:'" + std::to_string(data.size()) + "' pbData:'" + text + "',";
}

// Runs a request that is refused before anything is sent to the card, and compares both channels.
void expectRefusal(KeysFixture& keys, Request& request, DWORD status, const std::string& exit,
                   bool afterData = false, const LogLines& output = {},
                   const char* exitScope = scope) {
    LogLines file = {{scope, entered(request.info)}};
    if (afterData) file.push_back({scope, dataLine(request.data)});
    file.push_back({exitScope, exit});
    EXPECT_EQ(request.run(keys), status);
    EXPECT_EQ(keys.log.file(), file);
    EXPECT_EQ(keys.log.output(), output);
    EXPECT_TRUE(request.hasNoSignature());
    EXPECT_EQ(keys.card.exchanges().size(), 0u);
    EXPECT_EQ(keys.card.statusCalls(), 0);
}

void expectMse(KeysFixture& keys, const char* keyRef, const char* algorithm) {
    keys.card.expect(std::string("00 22 41 B6 06 84 01") + keyRef + "80 01" + algorithm + "00",
                     "9000");
}

void expectSignature(KeysFixture& keys, const ByteVector& data, const std::string& reply) {
    keys.card.expect("00 2A 9E 9A" + hexOf({static_cast<BYTE>(data.size())}) + hexOf(data) + "00",
                     reply);
}

TEST(CardSignData, RefusesNullPointersWithTheExitLineAlone) {
    KeysFixture keys(CardType::type3);
    CARD_SIGNING_INFO info{};
    EXPECT_EQ(CardSignData(nullptr, &info), status::invalidParameter);
    EXPECT_EQ(CardSignData(keys.data, nullptr), status::invalidParameter);
    const std::string line = exited(status::invalidParameter, ", pInfo or pCardData");
    EXPECT_EQ(keys.log.file(), (LogLines{{scope, line}, {scope, line}}));
}

TEST(CardSignData, RefusesWithoutACardContextBeforeTheEntryLine) {
    KeysFixture keys(CardType::type3);
    keys.data->hSCardCtx = 0;
    Request request(0, 1, 32);
    EXPECT_EQ(request.run(keys), status::invalidParameter);
    EXPECT_EQ(keys.log.file(),
              (LogLines{{scope, exited(status::invalidParameter, ", NoCardMode")}}));
}

TEST(CardSignData, WritesTheWholeRequestInTheEntryLine) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.dwVersion = 3;
    request.info.dwSigningFlags = 0x4000000F;
    request.info.aiHashAlg = CALG_SHA_256;
    request.info.dwPaddingType = 0xAB;
    EXPECT_EQ(request.run(keys), status::revisionMismatch);
    EXPECT_EQ(keys.log.file(),
              (LogLines{{scope,
                         "Entering the function, with parameters, bContainerIndex:'1' "
                         "dwSigningFlags:'0x4000000f', dwVersion:'3', dwKeySpec:'2' \n "
                         "dwPaddingType:'0x000000ab', pPaddingInfo:'0x0', aiHashAlg:'32780' "},
                        {scope, exited(status::revisionMismatch, ", dwVersion")}}));
}

TEST(CardSignData, RefusesVersions0And3) {
    for (const DWORD version : {0u, 3u}) {
        KeysFixture keys(CardType::type3);
        Request request(9, 9, 32);
        request.info.dwVersion = version;
        request.info.dwSigningFlags = 0x10;
        expectRefusal(keys, request, status::revisionMismatch,
                      exited(status::revisionMismatch, ", dwVersion"));
    }
}

TEST(CardSignData, RefusesEachForbiddenFlag) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        const DWORD flag = 1u << bit;
        if ((flag & 0x9FFFFFF0) == 0) continue;
        KeysFixture keys(CardType::type3);
        Request request(9, 9, 32);
        request.info.dwSigningFlags = flag;
        expectRefusal(keys, request, status::invalidParameter,
                      exited(status::invalidParameter, ", dwSigningFlags"));
    }
}

TEST(CardSignData, IgnoresTheFourLowFlags) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.dwVersion = 1;
    request.info.dwSigningFlags = 0xF;
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "82", "42");
    expectSignature(keys, request.data, "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
}

TEST(CardSignData, RefusesContainer2WithoutSecondSigningKeyAndContainer3) {
    for (const auto& [cardType, container] :
         {std::pair(CardType::type3, BYTE{2}), std::pair(CardType::type5, BYTE{3})}) {
        KeysFixture keys(cardType);
        Request request(container, 2, 32);
        request.info.aiHashAlg = CALG_SHA_256;
        expectRefusal(keys, request, status::noKeyContainer, exited(status::noKeyContainer));
    }
}

TEST(CardSignData, TellsTheKindOfKeyByTheContainersOwnCertificate) {
    KeysFixture keys(CardType::type4, TestKey::rsa2048, TestKey::p384);
    Request rsa(0, 3, 32);
    expectRefusal(keys, rsa, status::invalidParameter,
                  exited(status::invalidParameter, ", dwKeySpec RSA"));
    for (const BYTE container : {BYTE{1}, BYTE{2}}) {
        Request ecc(container, 2, 32);
        expectRefusal(keys, ecc, status::invalidParameter,
                      exited(status::invalidParameter, ", dwKeySpec ECC"));
    }
}

TEST(CardSignData, RefusesAKeySpecificationOfTheOtherKind) {
    for (const DWORD keySpec : {0u, 3u, 8u}) {
        KeysFixture keys(CardType::type3);
        Request request(0, keySpec, 32);
        request.info.aiHashAlg = CALG_SHA_256;
        expectRefusal(keys, request, status::invalidParameter,
                      exited(status::invalidParameter, ", dwKeySpec RSA"));
    }
    for (const DWORD keySpec : {0u, 1u, 2u, 9u}) {
        KeysFixture keys(CardType::type8, TestKey::p256);
        Request request(0, keySpec, 32);
        expectRefusal(keys, request, status::invalidParameter,
                      exited(status::invalidParameter, ", dwKeySpec ECC"));
    }
}

TEST(CardSignData, AnswersTheSizeInBytesForRsaAndInBitsForEccAndClearsTheInputPointer) {
    struct Row {
        CardType cardType;
        TestKey authKey;
        TestKey signKey;
        BYTE container;
        DWORD keySpec;
        DWORD size;
    };
    for (const Row& row : {Row{CardType::type3, TestKey::rsa2048, TestKey::rsa1024, 0, 1, 256},
                           Row{CardType::type3, TestKey::rsa2048, TestKey::rsa1024, 1, 2, 128},
                           Row{CardType::type8, TestKey::p256, TestKey::p384, 0, 3, 256},
                           Row{CardType::type8, TestKey::p256, TestKey::p384, 1, 4, 384},
                           Row{CardType::type4, TestKey::p256, TestKey::p521, 2, 5, 521}}) {
        KeysFixture keys(row.cardType, row.authKey, row.signKey);
        if (row.container == 2) keys.context.containers[1].wSigKeySizeBits = 1;
        Request request(row.container, row.keySpec, 32);
        request.info.dwSigningFlags = bufferSizeOnly;
        const std::string entry = entered(request.info);
        EXPECT_EQ(request.run(keys), 0u);
        EXPECT_EQ(keys.log.file(), (LogLines{{scope, entry}, {scope, exited(status::success)}}));
        EXPECT_EQ(keys.log.output(), (LogLines{{"DEBUG", "CardSignData: CARD_BUFFER_SIZE_ONLY"}}));
        EXPECT_EQ(request.info.cbSignedData, row.size);
        EXPECT_EQ(request.info.pbData, nullptr);
        EXPECT_EQ(request.info.pbSignedData, &request.untouched);
    }
}

TEST(CardSignData, RefusesNoData) {
    KeysFixture keys(CardType::type3);
    Request none(0, 1, 32);
    none.info.pbData = nullptr;
    expectRefusal(keys, none, status::invalidParameter,
                  exited(status::invalidParameter, ", pbData or cbData"));
    Request empty(0, 1, 32);
    empty.info.cbData = 0;
    expectRefusal(keys, empty, status::invalidParameter,
                  exited(status::invalidParameter, ", pbData or cbData"));
}

TEST(CardSignData, SignsByAlgorithmIdAndGivesALittleEndianSignatureOfTheKeysSize) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "82", "42");
    expectSignature(keys, request.data, hexOf(counting(256)) + "9000");
    EXPECT_EQ(request.run(keys), 0u);
    EXPECT_EQ(request.signature(), reversed(counting(256)));
    EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), std::vector<std::size_t>{256});
    EXPECT_EQ(keys.log.file(), (LogLines{{scope, entered(request.info)},
                                         {scope, dataLine(request.data)},
                                         {scope, exited(status::success)}}));
    EXPECT_EQ(keys.log.output(), rsaByAlgId);
    EXPECT_EQ(keys.card.statusCalls(), 1);
    EXPECT_EQ(request.info.pbData, request.data.data());
}

TEST(CardSignData, WritesTheDataAsSpacedHexadecimalText) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 3);
    EXPECT_EQ(dataLine(request.data), "cbData:'3' pbData:'00 01 02',");
    expectRefusal(keys, request, status::invalidParameter,
                  exited(status::invalidParameter, ", no hash algorithm"), true);
}

TEST(CardSignData, CallsUnknownNamesUnrecommendedUnderAnotherEntryPointsTag) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.pad(pss, WIDE_TEXT("sha256"));
    expectRefusal(keys, request, status::unsupportedFeature,
                  exited(status::unsupportedFeature, ", unrecommended algorithm"), true, {},
                  "CardReadFile");
}

TEST(CardSignData, LetsTheAlgorithmIdWinOverPssPaddingInformationOnBothCounts) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 48);
    request.pad(pss, WIDE_TEXT("SHA256"));
    request.info.aiHashAlg = CALG_SHA_384;
    expectMse(keys, "82", "52");
    expectSignature(keys, request.data, "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
    EXPECT_EQ(keys.log.output(),
              (LogLines{{"DEBUG", "CardSignData: pInfo->aiHashAlg (if)"},
                        {"WARNING",
                         "Entered both 'CARD_PADDING_INFO_PRESENT' and 'aiHashAlg' branch?"}}));
}

TEST(CardSignData, SendsTheLast20BytesOfThe36OfTheSsl3Form) {
    KeysFixture keys(CardType::type3);
    Request request(0, 1, 36);
    request.pad(pkcs1, nullptr);
    expectMse(keys, "81", "12");
    expectSignature(keys, bytes("101112131415161718191A1B1C1D1E1F20212223"), "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
    EXPECT_EQ(keys.log.file()[1].message, dataLine(counting(36)));
}

TEST(CardSignData, SendsAll20BytesOfASha1Hash) {
    KeysFixture keys(CardType::type3);
    Request request(0, 1, 20);
    request.pad(pkcs1, nullptr);
    expectMse(keys, "81", "12");
    expectSignature(keys, counting(20), "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
}

TEST(CardSignData, SendsAll36BytesWhenTheHashIsNotSha1) {
    KeysFixture keys(CardType::type3);
    Request request(0, 1, 36);
    request.pad(pkcs1, WIDE_TEXT("SHA256"));
    expectMse(keys, "81", "42");
    expectSignature(keys, counting(36), "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
}

TEST(CardSignData, TakesTheHashOfAnEccKeyFromTheLengthAndLeavesTheSignatureAsItIs) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    Request request(0, 3, 48);
    expectMse(keys, "91", "54");
    expectSignature(keys, request.data, "01 02 03 9000");
    EXPECT_EQ(request.run(keys), 0u);
    EXPECT_EQ(request.signature(), bytes("01 02 03"));
    EXPECT_EQ(keys.log.output(), eccBranch);
}

TEST(CardSignData, RefusesAWrongAlgorithmIdOfAnEccKeyBeforeTheLength) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    Request request(0, 3, 33);
    request.info.aiHashAlg = 0x8003;
    expectRefusal(keys, request, status::unsupportedFeature,
                  exited(status::unsupportedFeature, " invalid hash algorithm (hashAldId)"), true,
                  rsaByAlgId);
}

TEST(CardSignData, RefusesALengthOfAnEccHashThatIsNone) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    Request request(0, 3, 33);
    expectRefusal(keys, request, status::invalidParameter,
                  exited(status::invalidParameter, " invalid hash algorihm ECC"), true, eccBranch);
}

TEST(CardSignData, NamesTheKeyByTheCardTheKindAndTheContainer) {
    struct Row {
        CardType cardType;
        TestKey key;
        BYTE container;
        const char* keyRef;
    };
    for (const Row& row : {Row{CardType::type3, TestKey::rsa2048, 0, "81"},
                           Row{CardType::type3, TestKey::rsa2048, 1, "82"},
                           Row{CardType::type8, TestKey::p256, 0, "91"},
                           Row{CardType::type8, TestKey::p256, 1, "93"},
                           Row{CardType::type7, TestKey::p256, 0, "01"},
                           Row{CardType::type7, TestKey::p256, 1, "02"},
                           Row{CardType::type7, TestKey::p256, 2, "03"},
                           Row{CardType::type4, TestKey::rsa2048, 2, "03"}}) {
        KeysFixture keys(row.cardType, row.key);
        const bool isEcc = row.key == TestKey::p256;
        Request request(row.container, isEcc ? 3 : 1, 32);
        if (!isEcc) request.info.aiHashAlg = CALG_SHA_256;
        expectMse(keys, row.keyRef, isEcc ? "44" : "42");
        if (profileOf(row.cardType).hasSecondSigningKey) {
            keys.card.expect("00 2A 90 A0 22 90 20" + hexOf(request.data) + "00", "9000")
                .expect("00 2A 9E 9A 20" + hexOf(request.data) +
                            (row.cardType == CardType::type4 ? "60" : "40"),
                        "01 9000");
        } else {
            expectSignature(keys, request.data, "01 9000");
        }
        EXPECT_EQ(request.run(keys), 0u);
    }
}

TEST(CardSignData, NamesTheKeyByTheContextAndRunsTheScriptOfTheCardType) {
    KeysFixture keys(CardType::type3);
    keys.context.hasSecondSignCert = true;
    Request request(0, 1, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "01", "42");
    expectSignature(keys, request.data, "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
}

TEST(CardSignData, ReportsAClosedPinAsASecurityViolation) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "82", "42");
    expectSignature(keys, request.data, "6982");
    EXPECT_EQ(request.run(keys), status::securityViolation);
    EXPECT_TRUE(request.hasNoSignature());
    EXPECT_EQ(keys.log.file(),
              (LogLines{{scope, entered(request.info)},
                        {scope, dataLine(request.data)},
                        {scope, exited(status::securityViolation, " from APDU")}}));
}

TEST(CardSignData, ReportsSuccessWithoutASignatureForARefusalWithoutPlatformCode) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "82", "42");
    expectSignature(keys, request.data, "6A82");
    EXPECT_EQ(request.run(keys), 0u);
    EXPECT_TRUE(request.hasNoSignature());
    EXPECT_EQ(keys.log.file(), (LogLines{{scope, entered(request.info)},
                                         {scope, dataLine(request.data)},
                                         {scope, exited(status::success, " from APDU")}}));
}

TEST(CardSignData, ReportsARefusedEnvironmentByItsPlatformCode) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    keys.card.expect("00 22 41 B6 06 84 01 82 80 01 42 00", "6A88");
    EXPECT_EQ(request.run(keys), status::fileNotFound);
    EXPECT_TRUE(request.hasNoSignature());
}

TEST(CardSignData, ReportsAFailedTransmission) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    keys.card.expectFailure("00 22 41 B6 06 84 01 82 80 01 42 00", SCARD_W_REMOVED_CARD);
    EXPECT_EQ(request.run(keys), status::unexpected);
    EXPECT_TRUE(request.hasNoSignature());
    EXPECT_EQ(keys.log.file().back().message, exited(status::unexpected, " from APDU"));
}

TEST(CardSignData, ReportsMissingMemoryWithThePlainExitLine) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "82", "42");
    expectSignature(keys, request.data, "01 9000");
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(request.run(keys), status::notEnoughMemory);
    EXPECT_TRUE(request.hasNoSignature());
    EXPECT_EQ(keys.log.file(), (LogLines{{scope, entered(request.info)},
                                         {scope, dataLine(request.data)},
                                         {scope, exited(status::notEnoughMemory)}}));
}

TEST(CardSignData, SendsTheLast20BytesOfTheSsl3FormByAlgorithmIdToo) {
    KeysFixture keys(CardType::type3);
    Request request(0, 1, 36);
    request.info.aiHashAlg = CALG_SHA1;
    expectMse(keys, "81", "12");
    expectSignature(keys, bytes("101112131415161718191A1B1C1D1E1F20212223"), "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
}

TEST(CardSignData, LeavesDataOutThatOneCommandCannotCarry) {
    for (const std::size_t length : {256u, 257u, 70000u}) {
        KeysFixture keys(CardType::type3);
        Request request(1, 2, length);
        request.info.aiHashAlg = CALG_SHA_256;
        expectMse(keys, "82", "42");
        keys.card.expect("00 2A 9E 9A 00", "6700");
        EXPECT_EQ(request.run(keys), status::invalidParameter);
        EXPECT_TRUE(request.hasNoSignature());
        // 256 bytes are left out without a word.
        LogLines output = rsaByAlgId;
        if (length > 256) {
            output.push_back({"ERROR", "Apdu data size too big " + std::to_string(length) +
                                           " > SINGLE_APDU_DATAFIELD_MAX_SIZE to fit single "
                                           "command, possibly chaining required, if APDU supports "
                                           "it (CLA=10h)!"});
        }
        EXPECT_EQ(keys.log.output(), output);
    }
}

TEST(CardSignData, BeginsNoTransaction) {
    KeysFixture keys(CardType::type3);
    Request request(1, 2, 32);
    request.info.aiHashAlg = CALG_SHA_256;
    expectMse(keys, "82", "42");
    expectSignature(keys, request.data, "01 9000");
    EXPECT_EQ(request.run(keys), 0u);
    EXPECT_EQ(testing::platformCalls().counts["SCardBeginTransaction"], 0);
    EXPECT_EQ(testing::platformCalls().counts["SCardReconnect"], 0);
}

}  // namespace
}  // namespace KelmoraID
