#include "keys/signature_parameters.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/wide_text.h"

namespace KelmoraID {
namespace {

constexpr DWORD none = CARD_PADDING_NONE;
constexpr DWORD pkcs1 = CARD_PADDING_PKCS1;
constexpr DWORD pss = CARD_PADDING_PSS;
constexpr DWORD oaep = CARD_PADDING_OAEP;
constexpr DWORD notSaid = 0xFFFF;        // no padding information, by the flags
const WCHAR notThere[] = WIDE_TEXT("");  // no padding information, by the pointer
constexpr ALG_ID noId = 0;
constexpr ALG_ID md5 = 0x8003;
enum Kind : bool { rsa = false, ecc = true };

struct Row {
    DWORD padding;
    LPCWSTR name;
    ALG_ID algorithm;
    DWORD length;
    Kind kind;
    /// What was read: P(adding information), A(LG_ID), L(ength). Then the two nibbles as the card
    /// takes them, or the status with the end of the exit line, and its scope where it is another.
    const char* expected;
};

std::string chosen(const Row& row) {
    BCRYPT_PSS_PADDING_INFO padding{row.name, 99};  // The salt's length is not read.
    CARD_SIGNING_INFO info{};
    info.aiHashAlg = row.algorithm;
    info.cbData = row.length;
    info.pPaddingInfo = row.name == notThere ? nullptr : &padding;
    if (row.padding != notSaid) {
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.dwPaddingType = row.padding;
    } else {
        info.dwPaddingType = CARD_PADDING_PKCS1;
    }
    const SignatureChoice choice = chooseSignatureAlgorithm(info, row.kind);
    std::string text;
    if (choice.readPaddingInfo) text += "P";
    if (choice.readAlgorithmId) text += "A";
    if (choice.readHashLength) text += "L";
    if (const auto* refusal = std::get_if<SignatureRefusal>(&choice.outcome)) {
        text += fmt::format(" {:X}{}", refusal->status, refusal->suffix);
        if (std::string(refusal->scope) != "CardSignData")
            text += std::string(" as ") + refusal->scope;
        return text;
    }
    const auto& algorithm = std::get<SignatureAlgorithm>(choice.outcome);
    return text + fmt::format(" {:02X} {:02X}", algorithm.hashNibble, algorithm.schemeNibble);
}

void expect(std::initializer_list<Row> rows) {
    int number = 0;
    for (const Row& row : rows) EXPECT_EQ(chosen(row), row.expected) << "row " << ++number;
}

TEST(SignatureParameters, OfAnRsaKeyKnowFourAlgorithmIdsAndNoOther) {
    const char* unknown = "A 80100022 invalid hash algorithm (hashAldId)";
    expect({
        {notSaid, nullptr, CALG_SHA1, 20, rsa, "A 10 02"},
        {notSaid, nullptr, CALG_SHA_256, 32, rsa, "A 40 02"},
        {notSaid, nullptr, CALG_SHA_384, 48, rsa, "A 50 02"},
        {notSaid, nullptr, CALG_SHA_512, 64, rsa, "A 60 02"},
        {notSaid, nullptr, CALG_SHA_512, 1, rsa, "A 60 02"},
        {notSaid, nullptr, md5, 16, rsa, unknown},
        {notSaid, nullptr, 0x8005, 32, rsa, unknown},
        {notSaid, nullptr, 0x800B, 32, rsa, unknown},
        {notSaid, nullptr, 0x800F, 32, rsa, unknown},
        {notSaid, nullptr, 1, 32, rsa, unknown},
        {notSaid, nullptr, 0xFFFFFFFF, 32, rsa, unknown},
    });
}

TEST(SignatureParameters, OfAnRsaKeyKnowTheHashesByTheirNamesInPaddingInformation) {
    expect({
        {pkcs1, WIDE_TEXT("SHA1"), noId, 20, rsa, "P 10 02"},
        {pkcs1, WIDE_TEXT("SHA256"), noId, 32, rsa, "P 40 02"},
        {pkcs1, WIDE_TEXT("SHA384"), noId, 48, rsa, "P 50 02"},
        {pkcs1, WIDE_TEXT("SHA512"), noId, 64, rsa, "P 60 02"},
        {pkcs1, WIDE_TEXT("SSL3_SHAMD5"), noId, 36, rsa, "P 10 02"},
        {pkcs1, nullptr, noId, 36, rsa, "P 10 02"},
        {pss, WIDE_TEXT("SHA1"), noId, 20, rsa, "P 10 05"},
        {pss, WIDE_TEXT("SHA256"), noId, 32, rsa, "P 40 05"},
        {pss, WIDE_TEXT("SHA384"), noId, 48, rsa, "P 50 05"},
        {pss, WIDE_TEXT("SHA512"), noId, 64, rsa, "P 60 05"},
        {pss, WIDE_TEXT("SSL3_SHAMD5"), noId, 36, rsa, "P 10 05"},
        {pss, nullptr, noId, 36, rsa, "P 10 05"},
    });
}

TEST(SignatureParameters, CallABrokenHashInvalidAndAnUnknownOneUnrecommended) {
    const char* invalid = "P 80100022, invalid hash algorithm";
    const char* unrecommended = "P 80100022, unrecommended algorithm as CardReadFile";
    expect({
        {pkcs1, WIDE_TEXT("MD2"), CALG_SHA_256, 16, rsa, invalid},
        {pkcs1, WIDE_TEXT("MD4"), noId, 16, rsa, invalid},
        {pss, WIDE_TEXT("MD5"), noId, 16, rsa, invalid},
        {pkcs1, WIDE_TEXT("MD5"), noId, 32, ecc, invalid},
        {pss, WIDE_TEXT("sha256"), CALG_SHA_256, 32, rsa, unrecommended},
        {pss, WIDE_TEXT("SHA-256"), noId, 32, rsa, unrecommended},
        {pkcs1, WIDE_TEXT("SHA224"), noId, 28, rsa, unrecommended},
        {pkcs1, WIDE_TEXT("SHA2567"), noId, 32, rsa, unrecommended},
        {pkcs1, WIDE_TEXT(" "), noId, 32, ecc, unrecommended},
    });
}

TEST(SignatureParameters, RefuseAPaddingBeforeTheyReadItsInformation) {
    expect({
        {none, notThere, CALG_SHA_256, 32, rsa, "P 80100022, padding none"},
        {none, notThere, CALG_SHA_256, 32, ecc, "P 80100022, padding none"},
        {oaep, notThere, CALG_SHA_256, 32, rsa, "P 80100022, padding OAEP"},
        {oaep, notThere, noId, 32, ecc, "P 80100022, padding OAEP"},
        {0, notThere, CALG_SHA_256, 32, rsa, "P 80100004, dwPaddingType"},
        {3, notThere, CALG_SHA_256, 32, rsa, "P 80100004, dwPaddingType"},
        {6, notThere, noId, 32, ecc, "P 80100004, dwPaddingType"},
        {pkcs1, notThere, CALG_SHA_256, 32, rsa, "P 80100004, pPaddingInfo"},
        {pss, notThere, noId, 32, rsa, "P 80100004, pPaddingInfo"},
        {pkcs1, notThere, noId, 32, ecc, "P 80100004, pPaddingInfo"},
        {pss, notThere, CALG_SHA_256, 32, ecc, "P 80100004, pPaddingInfo"},
    });
}

// Padding information that is not said to be present is not read.
TEST(SignatureParameters, OfAnRsaKeyRefuseARequestWithoutAnyHash) {
    expect({
        {notSaid, WIDE_TEXT("SHA256"), noId, 20, rsa, " 80100004, no hash algorithm"},
        {notSaid, notThere, noId, 32, rsa, " 80100004, no hash algorithm"},
    });
}

TEST(SignatureParameters, OfAnEccKeyGoByTheLengthOfTheHash) {
    const char* unknown = "L 80100004 invalid hash algorihm ECC";
    expect({
        {notSaid, nullptr, noId, 20, ecc, "L 10 04"},
        {notSaid, nullptr, noId, 28, ecc, "L 30 04"},
        {notSaid, nullptr, noId, 32, ecc, "L 40 04"},
        {notSaid, nullptr, noId, 48, ecc, "L 50 04"},
        {notSaid, nullptr, noId, 64, ecc, "L 60 04"},
        {notSaid, nullptr, noId, 1, ecc, unknown},
        {notSaid, nullptr, noId, 19, ecc, unknown},
        {notSaid, nullptr, noId, 30, ecc, unknown},
        {notSaid, nullptr, noId, 33, ecc, unknown},
        {notSaid, nullptr, noId, 36, ecc, unknown},
        {notSaid, nullptr, noId, 65, ecc, unknown},
        {notSaid, nullptr, noId, 300, ecc, unknown},
    });
}

TEST(SignatureParameters, LetTheLastPartThatIsThereDecide) {
    const char* unknown = "PA 80100022 invalid hash algorithm (hashAldId)";
    expect({
        {pss, WIDE_TEXT("SHA256"), CALG_SHA_384, 48, rsa, "PA 50 02"},
        {pss, WIDE_TEXT("SHA512"), CALG_SHA1, 32, ecc, "PAL 40 04"},
        {notSaid, nullptr, CALG_SHA1, 32, ecc, "AL 40 04"},
        {pkcs1, WIDE_TEXT("SHA256"), noId, 64, ecc, "PL 60 04"},
        {pkcs1, WIDE_TEXT("SHA256"), md5, 33, ecc, unknown},
        {pss, WIDE_TEXT("SHA256"), md5, 32, rsa, unknown},
        {pss, WIDE_TEXT("SHA256"), CALG_SHA1, 33, ecc, "PAL 80100004 invalid hash algorihm ECC"},
    });
}

}  // namespace
}  // namespace KelmoraID
