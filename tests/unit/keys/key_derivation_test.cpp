#include <vector>

#include "keys/keys_fixture.h"
#include "platform/wide_text.h"
#include "support/statuses.h"

// The stand-in's own call, for a hook that only looks on (tests/support/platform_calls.h).
extern "C" NTSTATUS __real_BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE hAlgorithm,
                                                        ULONG dwFlags);

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::exited;
using testing::KeysFixture;
using testing::lines;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformRecord;
using testing::TestKey;

constexpr const char* scope = "CardDeriveKey";
constexpr const char* entered = "Entering the function";
constexpr const char* parameters =
    "with parameters, bSecretAgreementIndex:'0x00000001', dwFlags:'0x00000000', "
    "dwVersion:'0x00000002', dwKeyLen:'0'";
constexpr const char* sizeOnlyParameters =
    "with parameters, bSecretAgreementIndex:'0x00000001', dwFlags:'0x20000000', "
    "dwVersion:'0x00000002', dwKeyLen:'0'";
constexpr const char* kdf = "pwszKDF exists: HASH.";
constexpr const char* listExists = "pParameterList exists.";
constexpr const char* sha1OfAbc = "a9993e364706816aba3e25717850c26c9cd0d89d";

const std::vector<std::string> noBcrypt;

// A card with the open PIN and one secret, "abc", under index 1.
struct Derivation : KeysFixture {
    Derivation() : KeysFixture(CardType::type6, TestKey::p256) {
        context.secretAgreements = {{1, bytes("61 62 63")}};
    }
    // The calls of the hash so far, in order.
    std::vector<std::string> bcryptCalls() const {
        std::vector<std::string> result;
        for (const std::string& name : platformCalls().order) {
            if (name.starts_with("BCrypt")) result.push_back(name.substr(6));
        }
        return result;
    }
};

// A request that is in order but for what a test changes.
struct Request {
    Request() {
        info.dwVersion = 2;
        info.pwszKDF = kdfName.data();
        info.bSecretAgreementIndex = 1;
        info.pbDerivedKey = &untouched;
        info.cbDerivedKey = 0xDDDD;
        info.hKey = 0xEEEE;
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    void add(ULONG type, const void* data, std::size_t size) {
        buffers.push_back({static_cast<ULONG>(size), type, const_cast<void*>(data)});
        list = {BCRYPTBUFFER_VERSION, static_cast<ULONG>(buffers.size()), buffers.data()};
        info.pParameterList = &list;
    }
    void add(ULONG type, const char* text) {
        add(type, text, std::char_traits<char>::length(text));
    }
    // A name as the platform gives it, with its terminator.
    void addHash(const WCHAR* name) {
        add(KDF_HASH_ALGORITHM, name, (WideStringView(name).size() + 1) * sizeof(WCHAR));
    }
    // Runs a derivation that works, and gives the key.
    ByteVector derive(Derivation& card) {
        card.expectPinQuery();
        EXPECT_EQ(CardDeriveKey(card.data, &info), 0u);
        const ByteVector key(info.pbDerivedKey, info.pbDerivedKey + info.cbDerivedKey);
        card.data->pfnCspFree(info.pbDerivedKey);
        return key;
    }

    WideString kdfName = WIDE_TEXT("HASH");
    std::vector<BCryptBuffer> buffers;
    BCryptBufferDesc list{};
    BYTE untouched = 0;
    CARD_DERIVE_KEY info{};
};

// Runs a request that is refused before the card is spoken to.
void expectRefusal(Derivation& card, Request& request, DWORD status,
                   std::initializer_list<std::string> file) {
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), status);
    EXPECT_EQ(card.log.file(), lines(scope, file));
    EXPECT_EQ(card.log.output(), LogLines{});
    EXPECT_EQ(card.card.statusCalls(), 0);
    EXPECT_EQ(card.bcryptCalls(), noBcrypt);
    EXPECT_EQ(request.info.cbDerivedKey, 0xDDDDu);
    EXPECT_EQ(request.info.pbDerivedKey, &request.untouched);
}

TEST(CardDeriveKey, RefusesNullPointersWithTheEntryLineAlone) {
    Derivation card;
    Request request;
    EXPECT_EQ(CardDeriveKey(nullptr, &request.info), status::invalidParameter);
    EXPECT_EQ(CardDeriveKey(card.data, nullptr), status::invalidParameter);
    EXPECT_EQ(card.log.file(), lines(scope, {entered, entered}));
}

TEST(CardDeriveKey, WritesTheRequestBeforeItChecksTheVersion) {
    for (const DWORD version : {0u, 3u}) {
        Derivation card;
        Request request;
        WideString algorithm = WIDE_TEXT("AES");
        request.kdfName = WIDE_TEXT("OTHER");
        request.info.pwszKDF = request.kdfName.data();
        request.info.pwszAlgId = algorithm.data();
        request.info.dwVersion = version;
        request.info.dwFlags = 0x80000001;
        request.info.bSecretAgreementIndex = 0xFE;
        request.info.dwKeyLen = 256;
        expectRefusal(card, request, status::revisionMismatch,
                      {entered,
                       "with parameters, bSecretAgreementIndex:'0x000000fe', "
                       "dwFlags:'0x80000001', dwVersion:'0x0000000" +
                           std::to_string(version) + "', dwKeyLen:'256'",
                       "pwszAlgId exists: AES.", "pwszKDF exists: OTHER.",
                       exited(status::revisionMismatch, ". CMR_443")});
    }
}

TEST(CardDeriveKey, RefusesNoKdf) {
    Derivation card;
    Request request;
    request.info.pwszKDF = nullptr;
    expectRefusal(card, request, status::invalidParameter,
                  {entered, parameters, exited(status::invalidParameter, ". CMR_444")});
}

TEST(CardDeriveKey, RefusesAllFlagsButTwoBeforeTheKdf) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        const DWORD flag = 1u << bit;
        if (flag == 0x20000000 || flag == 0x01000000) continue;
        Derivation card;
        Request request;
        request.kdfName = WIDE_TEXT("hash");
        request.info.dwFlags = flag;
        EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::invalidParameter);
        EXPECT_EQ(card.log.file().back().message, exited(status::invalidParameter, ". CMR_445"));
    }
}

TEST(CardDeriveKey, KnowsNoKdfButHash) {
    for (const LPCWSTR name : {WIDE_TEXT("HMAC"), WIDE_TEXT("hash"), WIDE_TEXT("HASH "),
                               WIDE_TEXT("HAS"), WIDE_TEXT("")}) {
        Derivation card;
        Request request;
        request.kdfName = name;
        request.info.pwszKDF = request.kdfName.data();
        request.info.bSecretAgreementIndex = 9;
        EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::invalidParameter);
        EXPECT_EQ(card.log.file().back().message, exited(status::invalidParameter, ". CMR_446"));
    }
}

TEST(CardDeriveKey, RefusesAnUnknownIndexBeforeTheParameterList) {
    Derivation card;
    Request request;
    request.add(9, "unknown type");
    request.info.bSecretAgreementIndex = 2;
    expectRefusal(card, request, status::invalidParameter,
                  {entered,
                   "with parameters, bSecretAgreementIndex:'0x00000002', dwFlags:'0x00000000', "
                   "dwVersion:'0x00000002', dwKeyLen:'0'",
                   kdf, exited(status::invalidParameter, ". CMR_447")});
}

TEST(CardDeriveKey, RefusesASecretThatWasDestroyed) {
    Derivation card;
    card.expectPinQuery();
    EXPECT_EQ(CardDestroyDHAgreement(card.data, 1, 0), 0u);
    card.log.clear();
    Request request;
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::invalidParameter);
    EXPECT_EQ(card.log.file(), lines(scope, {entered, parameters, kdf,
                                             exited(status::invalidParameter, ". CMR_447")}));
}

TEST(CardDeriveKey, HashesTheBareSecretBySha1WithoutAParameterList) {
    Derivation card;
    Request request;
    EXPECT_EQ(request.derive(card), bytes(sha1OfAbc));
    EXPECT_EQ(request.info.cbDerivedKey, 20u);
    EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), std::vector<std::size_t>{20});
    EXPECT_EQ(request.info.hKey, 0xEEEEu);
    EXPECT_EQ(card.log.file(),
              lines(scope, {entered, parameters, kdf, exited(status::success, ".")}));
    EXPECT_EQ(card.log.output(), LogLines{});
    EXPECT_EQ(card.bcryptCalls(),
              (std::vector<std::string>{"OpenAlgorithmProvider", "GetProperty", "CreateHash",
                                        "HashData", "HashData", "HashData", "FinishHash",
                                        "DestroyHash", "CloseAlgorithmProvider"}));
}

TEST(CardDeriveKey, TakesVersion1AndTheFlagForAKeyHandle) {
    Derivation card;
    Request request;
    request.info.dwVersion = 1;
    request.info.dwFlags = 0x01000000;
    EXPECT_EQ(request.derive(card), bytes(sha1OfAbc));
    EXPECT_EQ(request.info.hKey, 0xEEEEu);
}

TEST(CardDeriveKey, KeepsTheSecretForFurtherDerivations) {
    Derivation card;
    Request first;
    Request second;
    EXPECT_EQ(first.derive(card), bytes(sha1OfAbc));
    EXPECT_EQ(second.derive(card), bytes(sha1OfAbc));
}

TEST(CardDeriveKey, HashesBySha1WithAnEmptyListWhateverItsPointer) {
    Derivation card;
    Request request;
    request.info.pParameterList = &request.list;
    EXPECT_EQ(request.derive(card), bytes(sha1OfAbc));
    EXPECT_EQ(card.log.file(),
              lines(scope, {entered, parameters, kdf, listExists, exited(status::success, ".")}));
}

TEST(CardDeriveKey, KnowsFourHashes) {
    struct Row {
        const WCHAR* name;
        const char* line;
        const char* key;
    };
    for (const Row& row :
         {Row{WIDE_TEXT("SHA1"), "Hash algorithm from buffer: SHA1.", sha1OfAbc},
          Row{WIDE_TEXT("SHA256"), "Hash algorithm from buffer: SHA256.",
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
          Row{WIDE_TEXT("SHA384"), "Hash algorithm from buffer: SHA384.",
              "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
              "8086072ba1e7cc2358baeca134c825a7"},
          Row{WIDE_TEXT("SHA512"), "Hash algorithm from buffer: SHA512.",
              "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
              "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"}}) {
        Derivation card;
        Request request;
        request.addHash(row.name);
        EXPECT_EQ(request.derive(card), bytes(row.key));
        EXPECT_EQ(card.log.file(), lines(scope, {entered, parameters, kdf, listExists,
                                                 "Found a KDF buffer with type: 0.", row.line,
                                                 exited(status::success, ".")}));
    }
}

TEST(CardDeriveKey, AsksThePlatformsOwnProviderForTheNamedHash) {
    Derivation card;
    Request request;
    request.addHash(WIDE_TEXT("SHA256"));
    WideString name, implementation;
    platformCalls().BCryptOpenAlgorithmProvider = [&](BCRYPT_ALG_HANDLE*, LPCWSTR algorithm,
                                                      LPCWSTR provider, ULONG flags) -> NTSTATUS {
        name = algorithm;
        implementation = provider;
        EXPECT_EQ(flags, 0u);
        return static_cast<NTSTATUS>(0xC0000225);
    };
    card.expectPinQuery();
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::unexpected);
    EXPECT_EQ(name, WIDE_TEXT("SHA256"));
    EXPECT_EQ(implementation, WIDE_TEXT("Microsoft Primitive Provider"));
}

TEST(CardDeriveKey, LetsALaterHashReplaceAnEarlierOne) {
    Derivation card;
    Request request;
    request.addHash(WIDE_TEXT("SHA512"));
    request.addHash(WIDE_TEXT("SHA1"));
    EXPECT_EQ(request.derive(card), bytes(sha1OfAbc));
}

TEST(CardDeriveKey, HashesThePrependsTheSecretAndTheAppends) {
    Derivation card;
    Request request;
    request.add(KDF_SECRET_PREPEND, "A");
    request.add(KDF_SECRET_PREPEND, "B");
    request.add(KDF_SECRET_APPEND, "C");
    // SHA-1 of "ABabcC"
    EXPECT_EQ(request.derive(card), bytes("14a48c85479de215e97e8a0b808bf6213a72d2f0"));
    EXPECT_EQ(card.log.file(),
              lines(scope, {entered, parameters, kdf, listExists,
                            "Found a KDF buffer with type: 1.", "Found a KDF buffer with type: 1.",
                            "Found a KDF buffer with type: 2.", exited(status::success, ".")}));
}

TEST(CardDeriveKey, TakesPrependsAndAppendsInAnyOrderWithTheHash) {
    Derivation card;
    Request request;
    request.add(KDF_SECRET_APPEND, nullptr, 0);
    request.add(KDF_SECRET_PREPEND, "x");
    request.addHash(WIDE_TEXT("SHA256"));
    // SHA-256 of "xabc"
    EXPECT_EQ(request.derive(card),
              bytes("d15c609c78b3106ec54b9f5c4c70437636f69f191bff82e430e0b77ec376c310"));
}

TEST(CardDeriveKey, RefusesHashNamesOutsideTheFourExactly) {
    for (const WCHAR* name : {WIDE_TEXT("sha256"), WIDE_TEXT("SHA224"), WIDE_TEXT("SHA-256"),
                              WIDE_TEXT("MD5"), WIDE_TEXT("SHA2567"), WIDE_TEXT("")}) {
        Derivation card;
        Request request;
        request.addHash(name);
        request.add(9, "not reached");
        expectRefusal(card, request, status::invalidParameter,
                      {entered, parameters, kdf, listExists, "Found a KDF buffer with type: 0.",
                       exited(status::invalidParameter, ". Invalid hash algorithm.")});
    }
}

TEST(CardDeriveKey, RefusesAHashNameThatIsNotThere) {
    Derivation card;
    Request request;
    request.add(KDF_HASH_ALGORITHM, nullptr, 14);
    expectRefusal(card, request, status::invalidParameter,
                  {entered, parameters, kdf, listExists, "Found a KDF buffer with type: 0.",
                   exited(status::invalidParameter, ". Invalid hash algorithm.")});
}

TEST(CardDeriveKey, ReadsAHashNameNoFurtherThanItsBuffer) {
    const WCHAR name[] = {'S', 'H', 'A', '2', '5', '6', 'X'};
    const std::vector<WCHAR> exact(name, name + 6);  // No terminator, and nothing behind it.
    Derivation card;
    Request request;
    request.add(KDF_HASH_ALGORITHM, exact.data(), 12);
    request.derive(card);
    EXPECT_EQ(request.info.cbDerivedKey, 32u);
    for (const std::size_t size : {0u, 1u, 11u, 13u}) {
        Request other;
        other.add(KDF_HASH_ALGORITHM, name, size);
        const bool whole = size == 13;  // Half a unit behind the name is none.
        if (whole) {
            other.derive(card);
        } else {
            EXPECT_EQ(CardDeriveKey(card.data, &other.info), status::invalidParameter);
        }
    }
}

TEST(CardDeriveKey, ReadsAHashNameThatIsNotAligned) {
    const BYTE name[] = {0xEE, 'S', 0, 'H', 0, 'A', 0, '1', 0, 0, 0};
    Derivation card;
    Request request;
    request.add(KDF_HASH_ALGORITHM, name + 1, 10);
    EXPECT_EQ(request.derive(card), bytes(sha1OfAbc));
}

TEST(CardDeriveKey, RefusesAnUnknownBufferTypeAtOnceWithoutALineForIt) {
    for (const ULONG type : {3u, 9u, 0xFFFFFFFFu}) {
        Derivation card;
        Request request;
        request.add(KDF_SECRET_PREPEND, "A");
        request.add(type, "B");
        request.addHash(WIDE_TEXT("sha1"));
        expectRefusal(card, request, status::invalidParameter,
                      {entered, parameters, kdf, listExists, "Found a KDF buffer with type: 1.",
                       exited(status::invalidParameter, ". CMR_448")});
    }
}

TEST(CardDeriveKey, RefusesBytesAndBuffersThatAreNotThere) {
    for (const ULONG type : {KDF_SECRET_PREPEND, KDF_SECRET_APPEND}) {
        Derivation card;
        Request request;
        request.add(type, nullptr, 1);
        expectRefusal(card, request, status::invalidParameter,
                      {entered, parameters, kdf, listExists,
                       "Found a KDF buffer with type: " + std::to_string(type) + ".",
                       exited(status::invalidParameter, ". CMR_448")});
    }
    Derivation card;
    Request request;
    request.list.cBuffers = 1;
    request.info.pParameterList = &request.list;
    expectRefusal(
        card, request, status::invalidParameter,
        {entered, parameters, kdf, listExists, exited(status::invalidParameter, ". CMR_448")});
}

TEST(CardDeriveKey, RefusesWithoutALineWhileThePinIsClosed) {
    Derivation card;
    Request request;
    card.data->hSCardCtx = 0;  // Looked at only afterwards.
    request.info.dwFlags = 0x20000000;
    card.expectPinQuery("63C3");
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::securityViolation);
    EXPECT_EQ(card.log.file(), lines(scope, {entered, sizeOnlyParameters, kdf}));
    EXPECT_EQ(card.bcryptCalls(), noBcrypt);
    EXPECT_EQ(request.info.cbDerivedKey, 0xDDDDu);
}

TEST(CardDeriveKey, LooksForTheCardContextOnlyAfterItHasSpokenToTheCard) {
    Derivation card;
    Request request;
    card.data->hSCardCtx = 0;
    card.expectPinQuery();
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::invalidParameter);
    EXPECT_EQ(card.log.file(), lines(scope, {entered, parameters, kdf,
                                             exited(status::invalidParameter, ". isNoCardMode")}));
    EXPECT_EQ(card.card.exchanges().size(), 2u);
    EXPECT_EQ(card.bcryptCalls(), noBcrypt);
}

TEST(CardDeriveKey, GivesTheLengthAloneWhenAskedForTheSizeAndWritesItsLineBeforeItCloses) {
    Derivation card;
    Request request;
    request.addHash(WIDE_TEXT("SHA384"));
    request.info.dwFlags = 0x20000000;
    LogLines beforeClosing;
    platformCalls().BCryptCloseAlgorithmProvider = [&](BCRYPT_ALG_HANDLE handle, ULONG flags) {
        beforeClosing = card.log.file();
        return __real_BCryptCloseAlgorithmProvider(handle, flags);
    };
    card.expectPinQuery();
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), 0u);
    EXPECT_EQ(
        beforeClosing,
        lines(scope, {entered, sizeOnlyParameters, kdf, listExists,
                      "Found a KDF buffer with type: 0.", "Hash algorithm from buffer: SHA384.",
                      exited(status::success, ". cbDeriveKey set (CARD_BUFFER_SIZE_ONLY): 48.")}));
    EXPECT_EQ(card.log.file(), LogLines{});
    EXPECT_EQ(request.info.cbDerivedKey, 48u);
    EXPECT_EQ(request.info.pbDerivedKey, &request.untouched);
    EXPECT_EQ(card.bcryptCalls(), (std::vector<std::string>{"OpenAlgorithmProvider", "GetProperty",
                                                            "CloseAlgorithmProvider"}));
}

// Each call of the hash fails once: the line, and what is closed, and that it is closed first.
struct BcryptFailure {
    const char* call;
    int nth;
    const char* suffix;
    std::vector<std::string> calls;
    DWORD lengthAfter;
};

TEST(CardDeriveKey, ClosesWhatItOpenedWhenAHashCallFailsAndThenWritesItsLine) {
    const BcryptFailure failures[] = {
        {"BCryptOpenAlgorithmProvider",
         1,
         ". BCryptOpenAlgorithmProvider.",
         {"OpenAlgorithmProvider"},
         0xDDDD},
        {"BCryptGetProperty",
         1,
         ". BCryptGetProperty.",
         {"OpenAlgorithmProvider", "GetProperty", "CloseAlgorithmProvider"},
         0xDDDD},
        {"BCryptCreateHash",
         1,
         ". BCryptCreateHash.",
         {"OpenAlgorithmProvider", "GetProperty", "CreateHash", "CloseAlgorithmProvider"},
         20},
        {"BCryptHashData",
         1,
         ". BCryptHashData.",
         {"OpenAlgorithmProvider", "GetProperty", "CreateHash", "HashData", "DestroyHash",
          "CloseAlgorithmProvider"},
         20},
        {"BCryptHashData",
         2,
         ". BCryptHashData.",
         {"OpenAlgorithmProvider", "GetProperty", "CreateHash", "HashData", "HashData",
          "DestroyHash", "CloseAlgorithmProvider"},
         20},
        {"BCryptHashData",
         3,
         ". BCryptHashData.",
         {"OpenAlgorithmProvider", "GetProperty", "CreateHash", "HashData", "HashData", "HashData",
          "DestroyHash", "CloseAlgorithmProvider"},
         20},
        {"BCryptFinishHash",
         1,
         ". BCryptHashData.",
         {"OpenAlgorithmProvider", "GetProperty", "CreateHash", "HashData", "HashData", "HashData",
          "FinishHash", "DestroyHash", "CloseAlgorithmProvider"},
         20},
    };
    for (const BcryptFailure& failure : failures) {
        SCOPED_TRACE(failure.call);
        Derivation card;
        Request request;
        platformCalls().failCall(failure.call, failure.nth);
        LogLines beforeClosing = {};
        platformCalls().BCryptCloseAlgorithmProvider = [&](BCRYPT_ALG_HANDLE handle, ULONG flags) {
            beforeClosing = card.log.file();
            return __real_BCryptCloseAlgorithmProvider(handle, flags);
        };
        card.expectPinQuery();
        EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::unexpected);
        LogLines file = card.log.file();
        if (failure.calls.size() > 1) {
            EXPECT_EQ(beforeClosing, lines(scope, {entered, parameters, kdf}));
            file.insert(file.begin(), beforeClosing.begin(), beforeClosing.end());
        }
        EXPECT_EQ(file, lines(scope, {entered, parameters, kdf,
                                      exited(status::unexpected, failure.suffix)}));
        EXPECT_EQ(card.bcryptCalls(), failure.calls);
        EXPECT_EQ(request.info.cbDerivedKey, failure.lengthAfter);
        EXPECT_EQ(request.info.pbDerivedKey, &request.untouched);
    }
}

TEST(CardDeriveKey, ReportsMissingMemoryWithEverythingClosed) {
    Derivation card;
    Request request;
    card.expectPinQuery();
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(CardDeriveKey(card.data, &request.info), status::notEnoughMemory);
    EXPECT_EQ(card.log.file(), lines(scope, {entered, parameters, kdf,
                                             exited(status::notEnoughMemory, ". No memory.")}));
    EXPECT_EQ(request.info.pbDerivedKey, nullptr);
    EXPECT_EQ(card.bcryptCalls().back(), "CloseAlgorithmProvider");
}

}  // namespace
}  // namespace KelmoraID
