#include "keys/signature_parameters.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "platform/wide_text.h"

namespace KelmoraID {
namespace {

using Outcome = std::variant<SignatureAlgorithm, SignatureRefusal>;

SignatureRefusal refuse(DWORD status, const char* suffix, const char* scope = "CardSignData") {
    return {status, suffix, scope};
}

struct NamedHash {
    WideStringView name;
    BYTE nibble;
};

// The name of MD5 and SHA-1 in a row stands for the SHA-1, which is what the card signs of it.
constexpr WideStringView ssl3HashName = WIDE_TEXT("SSL3_SHAMD5");
constexpr std::array<NamedHash, 5> acceptedHashes{{
    {WIDE_TEXT("SHA1"), hashNibbleSha1},
    {WIDE_TEXT("SHA256"), hashNibbleSha256},
    {WIDE_TEXT("SHA384"), hashNibbleSha384},
    {WIDE_TEXT("SHA512"), hashNibbleSha512},
    {ssl3HashName, hashNibbleSha1},
}};
constexpr std::array<WideStringView, 3> brokenHashes{
    WIDE_TEXT("MD2"),
    WIDE_TEXT("MD4"),
    WIDE_TEXT("MD5"),
};

struct NumberedHash {
    DWORD number;
    BYTE nibble;
};

constexpr std::array<NumberedHash, 4> hashesByAlgorithmId{{
    {CALG_SHA1, hashNibbleSha1},
    {CALG_SHA_256, hashNibbleSha256},
    {CALG_SHA_384, hashNibbleSha384},
    {CALG_SHA_512, hashNibbleSha512},
}};

constexpr std::array<NumberedHash, 5> hashesByLength{{
    {20, hashNibbleSha1},
    {28, hashNibbleSha224},
    {32, hashNibbleSha256},
    {48, hashNibbleSha384},
    {64, hashNibbleSha512},
}};

std::optional<BYTE> nibbleOf(std::span<const NumberedHash> hashes, DWORD number) {
    const auto hash = std::ranges::find(hashes, number, &NumberedHash::number);
    if (hash == hashes.end()) return std::nullopt;
    return hash->nibble;
}

Outcome byHashName(LPCWSTR name, BYTE schemeNibble) {
    const WideStringView wanted = name != nullptr ? name : ssl3HashName;
    const auto accepted = std::ranges::find(acceptedHashes, wanted, &NamedHash::name);
    if (accepted != acceptedHashes.end()) {
        return SignatureAlgorithm{accepted->nibble, schemeNibble};
    }
    // quirk: hash-verdicts. A broken hash is called invalid, an unknown one unrecommended.
    if (std::ranges::find(brokenHashes, wanted) != brokenHashes.end()) {
        return refuse(SCARD_E_UNSUPPORTED_FEATURE, ", invalid hash algorithm");
    }
    // quirk: exit-as-read-file. This one line goes out under another entry point's name.
    return refuse(SCARD_E_UNSUPPORTED_FEATURE, ", unrecommended algorithm", "CardReadFile");
}

Outcome byPaddingInfo(const CARD_SIGNING_INFO& info) {
    BYTE schemeNibble = 0;
    switch (info.dwPaddingType) {
        case CARD_PADDING_NONE:
            return refuse(SCARD_E_UNSUPPORTED_FEATURE, ", padding none");
        case CARD_PADDING_OAEP:
            return refuse(SCARD_E_UNSUPPORTED_FEATURE, ", padding OAEP");
        case CARD_PADDING_PKCS1:
            schemeNibble = schemeNibblePkcs1;
            break;
        case CARD_PADDING_PSS:
            schemeNibble = schemeNibblePss;
            break;
        default:
            return refuse(SCARD_E_INVALID_PARAMETER, ", dwPaddingType");
    }
    if (info.pPaddingInfo == nullptr) {
        return refuse(SCARD_E_INVALID_PARAMETER, ", pPaddingInfo");
    }
    // The name is the first field of the PSS record too; the length of its salt is not read.
    const auto padding = static_cast<const BCRYPT_PKCS1_PADDING_INFO*>(info.pPaddingInfo);
    return byHashName(padding->pszAlgId, schemeNibble);
}

Outcome byAlgorithmId(const CARD_SIGNING_INFO& info) {
    const auto hashNibble = nibbleOf(hashesByAlgorithmId, info.aiHashAlg);
    if (!hashNibble) {
        // quirk: misspelt-lines. A search in a log goes by the text.
        return refuse(SCARD_E_UNSUPPORTED_FEATURE, " invalid hash algorithm (hashAldId)");
    }
    // quirk: pkcs1-over-pss. Also where the padding information before it said PSS.
    return SignatureAlgorithm{*hashNibble, schemeNibblePkcs1};
}

Outcome byHashLength(const CARD_SIGNING_INFO& info) {
    const auto hashNibble = nibbleOf(hashesByLength, info.cbData);
    if (!hashNibble) {
        // quirk: misspelt-lines. A search in a log goes by the text.
        return refuse(SCARD_E_INVALID_PARAMETER, " invalid hash algorihm ECC");
    }
    return SignatureAlgorithm{*hashNibble, schemeNibbleEcdsa};
}

}  // namespace

SignatureChoice chooseSignatureAlgorithm(const CARD_SIGNING_INFO& info, bool isEcc) {
    SignatureChoice choice{refuse(SCARD_E_INVALID_PARAMETER, ", no hash algorithm")};
    const auto read = [&choice](bool& wasRead, const Outcome& outcome) {
        wasRead = true;
        choice.outcome = outcome;
        return std::holds_alternative<SignatureAlgorithm>(outcome);
    };
    if ((info.dwSigningFlags & CARD_PADDING_INFO_PRESENT) != 0 &&
        !read(choice.readPaddingInfo, byPaddingInfo(info))) {
        return choice;
    }
    if (info.aiHashAlg != 0 && !read(choice.readAlgorithmId, byAlgorithmId(info))) return choice;
    if (isEcc) read(choice.readHashLength, byHashLength(info));
    return choice;
}

}  // namespace KelmoraID
