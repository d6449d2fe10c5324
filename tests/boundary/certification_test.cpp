// The kinds of case that the public certification test of Windows' minidrivers goes through, as far
// as they fit a read-only card: calls with bad arguments, and a walk through a card that was made
// ready beforehand, by nothing but what the card says of itself. The test itself is not here.
#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

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
INSTANTIATE_TEST_SUITE_P(EveryCard, Certification, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

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
        {"CardDeleteContext", [&] { return data.pfnCardDeleteContext(nullptr); },
         status::invalidParameter},
        {"CardQueryCapabilities",
         [&] { return data.pfnCardQueryCapabilities(nullptr, &capabilities); },
         status::invalidParameter},
        {"CardDeleteContainer", [&] { return data.pfnCardDeleteContainer(nullptr, 0, 0); },
         status::invalidParameter},
        {"CardCreateContainer",
         [&] { return data.pfnCardCreateContainer(nullptr, 0, 0, 1, 2048, nullptr); },
         status::invalidParameter},
        {"CardGetContainerInfo",
         [&] { return data.pfnCardGetContainerInfo(nullptr, 0, 0, &container); },
         status::invalidParameter},
        {"CardAuthenticatePin",
         [&] { return data.pfnCardAuthenticatePin(nullptr, user, bytes, 4, nullptr); },
         status::invalidParameter},
        {"CardGetChallenge", [&] { return data.pfnCardGetChallenge(nullptr, &buffer, &size); },
         status::unsupportedFeature},
        {"CardUnblockPin",
         [&] { return data.pfnCardUnblockPin(nullptr, user, bytes, 8, bytes, 4, 3, 0); },
         status::invalidParameter},
        {"CardReadFile",
         [&] { return data.pfnCardReadFile(nullptr, mscp, map, 0, &buffer, &size); },
         status::invalidParameter},
        {"CardWriteFile", [&] { return data.pfnCardWriteFile(nullptr, mscp, map, 0, bytes, 4); },
         status::invalidParameter},
        {"CardEnumFiles", [&] { return data.pfnCardEnumFiles(nullptr, mscp, &names, &size, 0); },
         status::invalidParameter},
        {"CardGetFileInfo", [&] { return data.pfnCardGetFileInfo(nullptr, mscp, map, &info); },
         status::invalidParameter},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(nullptr, 0, &space); },
         status::invalidParameter},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(nullptr, 1, 0, &sizes); },
         status::invalidParameter},
        {"CardSignData", [&] { return data.pfnCardSignData(nullptr, &signing); },
         status::invalidParameter},
        {"CardRSADecrypt", [&] { return data.pfnCardRSADecrypt(nullptr, &decryption); },
         status::invalidParameter},
        {"CardAuthenticateEx",
         [&] {
             return data.pfnCardAuthenticateEx(nullptr, 1, 0, bytes, 4, nullptr, nullptr, nullptr);
         },
         status::invalidParameter},
        {"CardDeauthenticateEx", [&] { return data.pfnCardDeauthenticateEx(nullptr, 2, 0); },
         status::invalidParameter},
        {"CardGetContainerProperty",
         [&] { return data.pfnCardGetContainerProperty(nullptr, 0, name, bytes, 64, &size, 0); },
         status::invalidParameter},
        {"CardSetContainerProperty",
         [&] { return data.pfnCardSetContainerProperty(nullptr, 0, name, bytes, 4, 0); },
         status::invalidParameter},
        {"CardGetProperty",
         [&] { return data.pfnCardGetProperty(nullptr, name, bytes, 64, &size, 0); },
         status::invalidParameter},
        {"CardSetProperty", [&] { return data.pfnCardSetProperty(nullptr, name, bytes, 4, 0); },
         status::invalidParameter},
        {"CardDestroyKey", [&] { return data.pfnCardDestroyKey(nullptr, 0); }, status::unexpected},
    };
    if (card.isEcKey(0)) {
        CARD_DH_AGREEMENT_INFO agreement{};
        CARD_DERIVE_KEY derivation{};
        calls.push_back(
            {"CardConstructDHAgreement",
             [=, this]() mutable { return data.pfnCardConstructDHAgreement(nullptr, &agreement); },
             status::invalidParameter});
        calls.push_back(
            {"CardDeriveKey",
             [=, this]() mutable { return data.pfnCardDeriveKey(nullptr, &derivation); },
             status::invalidParameter});
        calls.push_back({"CardDestroyDHAgreement",
                         [&] { return data.pfnCardDestroyDHAgreement(nullptr, 1, 0); },
                         status::invalidParameter});
    }
    expectAll(calls);
}

TEST_P(Certification, NowhereToPutAnAnswerIsABadArgument) {
    expectAll({
        {"CardQueryCapabilities", [&] { return data.pfnCardQueryCapabilities(&data, nullptr); },
         status::invalidParameter},
        {"CardGetContainerInfo", [&] { return data.pfnCardGetContainerInfo(&data, 0, 0, nullptr); },
         status::invalidParameter},
        {"CardReadFile, data",
         [&] { return data.pfnCardReadFile(&data, mscp, map, 0, nullptr, &size); },
         status::invalidParameter},
        {"CardReadFile, size",
         [&] { return data.pfnCardReadFile(&data, mscp, map, 0, &buffer, nullptr); },
         status::invalidParameter},
        {"CardEnumFiles, names",
         [&] { return data.pfnCardEnumFiles(&data, mscp, nullptr, &size, 0); },
         status::invalidParameter},
        {"CardEnumFiles, size",
         [&] { return data.pfnCardEnumFiles(&data, mscp, &names, nullptr, 0); },
         status::invalidParameter},
        {"CardGetFileInfo", [&] { return data.pfnCardGetFileInfo(&data, mscp, map, nullptr); },
         status::invalidParameter},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(&data, 0, nullptr); },
         status::invalidParameter},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(&data, 1, 0, nullptr); },
         status::invalidParameter},
        {"CardSignData", [&] { return data.pfnCardSignData(&data, nullptr); },
         status::invalidParameter},
        {"CardRSADecrypt", [&] { return data.pfnCardRSADecrypt(&data, nullptr); },
         status::invalidParameter},
        {"CardGetProperty, size",
         [&] {
             return data.pfnCardGetProperty(&data, WIDE_TEXT("PIN List"), bytes, 64, nullptr, 0);
         },
         status::invalidParameter},
        {"CardGetContainerProperty, size",
         [&] {
             return data.pfnCardGetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), bytes,
                                                     64, nullptr, 0);
         },
         status::invalidParameter},
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
         [&] { return data.pfnCardGetContainerInfo(&data, 0, 1, &container); },
         status::invalidParameter},
        {"CardReadFile", [&] { return data.pfnCardReadFile(&data, mscp, map, 1, &buffer, &size); },
         status::invalidParameter},
        {"CardEnumFiles", [&] { return data.pfnCardEnumFiles(&data, mscp, &names, &size, 1); },
         status::invalidParameter},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(&data, 1, &space); },
         status::invalidParameter},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(&data, 1, 1, &sizes); },
         status::invalidParameter},
        {"CardSignData", [&] { return data.pfnCardSignData(&data, &signing); },
         status::invalidParameter},
        {"CardGetProperty", [&] { return card.property(WIDE_TEXT("PIN List"), 1).status; },
         status::invalidParameter},
        {"CardGetContainerProperty",
         [&] {
             return data.pfnCardGetContainerProperty(&data, 0, WIDE_TEXT("PIN Identifier"), bytes,
                                                     64, &size, 1);
         },
         status::invalidParameter},
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
         [&] { return data.pfnCardQueryCapabilities(&data, &capabilities); },
         status::revisionMismatch},
        {"CardQueryFreeSpace", [&] { return data.pfnCardQueryFreeSpace(&data, 0, &space); },
         status::revisionMismatch},
        {"CardGetFileInfo", [&] { return data.pfnCardGetFileInfo(&data, mscp, map, &info); },
         status::revisionMismatch},
        {"CardQueryKeySizes", [&] { return data.pfnCardQueryKeySizes(&data, 1, 0, &sizes); },
         status::revisionMismatch},
        {"CardGetContainerInfo",
         [&] { return data.pfnCardGetContainerInfo(&data, 0, 0, &container); },
         status::revisionMismatch},
        {"CardSignData", [&] { return data.pfnCardSignData(&data, &signing); },
         status::revisionMismatch},
        {"CardRSADecrypt", [&] { return data.pfnCardRSADecrypt(&data, &decryption); },
         status::revisionMismatch},
    });
}

TEST_P(Certification, NamesThatAreNotThereAreToldApart) {
    CARD_FILE_INFO infos[3] = {};  // One for each call: the version in it is written.
    CONTAINER_INFO container{};
    expectAll({
        {"no such file", [&] { return card.readFile("mscp", "unknown").status; },
         status::fileNotFound},
        {"a file of the root in mscp", [&] { return card.readFile("mscp", "cardid").status; },
         status::fileNotFound},
        {"no such directory", [&] { return card.readFile("unknown", "cmapfile").status; },
         status::directoryNotFound},
        {"no name", [&] { return card.readFile("mscp", "").status; }, status::invalidParameter},
        {"no such directory to list", [&] { return card.listFiles("unknown").status; },
         status::directoryNotFound},
        {"no name of a directory", [&] { return card.listFiles("").status; },
         status::invalidParameter},
        {"no such file to tell of",
         [&] { return data.pfnCardGetFileInfo(&data, mscp, unknown, &infos[0]); },
         status::fileNotFound},
        {"no such directory to tell of",
         [&] { return data.pfnCardGetFileInfo(&data, unknown, map, &infos[1]); },
         status::directoryNotFound},
        {"no name to tell of",
         [&] { return data.pfnCardGetFileInfo(&data, mscp, none, &infos[2]); },
         status::invalidParameter},
        {"no such container",
         [&] { return data.pfnCardGetContainerInfo(&data, card.containers(), 0, &container); },
         status::noKeyContainer},
        {"container 255", [&] { return data.pfnCardGetContainerInfo(&data, 255, 0, &container); },
         status::noKeyContainer},
        {"no such property", [&] { return card.property(WIDE_TEXT("unknown"), 0).status; },
         status::invalidParameter},
        {"no name of a property",
         [&] { return data.pfnCardGetProperty(&data, nullptr, bytes, 64, &size, 0); },
         status::invalidParameter},
        {"no such user",
         [&] {
             WCHAR nobody[] = WIDE_TEXT("nobody");
             return data.pfnCardAuthenticatePin(&data, nobody, bytes, 4, nullptr);
         },
         status::invalidParameter},
        {"PIN 0", [&] { return card.authenticate(0, "1234"); }, status::invalidParameter},
        {"PIN 5", [&] { return card.authenticate(5, "1234"); }, status::invalidParameter},
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
        EXPECT_EQ(card.authenticate(pinId, "999999", &attempts), status::wrongPin);
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

TEST_P(Certification, ACardThatIsTakenOutAndPutBackIsAcquiredAnew) {
    const Bytes before = card.readFile("mscp", "cmapfile").bytes;
    card.openKey(0);
    card.reader.removeCard();
    EXPECT_EQ(card.signMessage(0, "a message").status, status::unexpected);
    EXPECT_EQ(card.authenticate(1, card.pin(card.key(0).pin)), status::unexpected);
    card.release();
    EXPECT_EQ(card.acquire(), status::unexpected);
    card.reader.insertCard();
    EXPECT_EQ(card.acquire(), status::unexpected) << "by a connection to the card that is gone";
    card.reconnect();
    card.acquireOrFail();
    EXPECT_EQ(card.readFile("mscp", "cmapfile").bytes, before);
    EXPECT_EQ(card.signMessage(0, "a message").status, status::securityViolation)
        << "the PIN of before is closed";
    EXPECT_TRUE(card.signsTruly(0));
}

// Threads with a record each on the one card of a reader, as the platform holds them apart: each
// call stands in a transaction. They go round in a fixed order, so that no two calls of one thread
// follow each other.
class Turns {
public:
    Turns(virtual_card::VirtualReader& reader, std::size_t threads)
        : reader_(reader), threads_(threads) {}

    /// Waits for this thread's turn, and does something in a transaction of its own.
    void take(std::size_t thread, const std::function<void()>& work) {
        std::unique_lock lock(mutex_);
        next_.wait(lock, [&] { return turn_ % threads_ == thread; });
        const CardSeam& seam = *reader_.seam();
        EXPECT_EQ(seam.beginTransaction(seam.self, reader_.cardHandle()), 0);
        work();
        EXPECT_EQ(reader_.openTransactions(), 1);
        EXPECT_EQ(seam.endTransaction(seam.self, reader_.cardHandle(), SCARD_LEAVE_CARD), 0);
        ++turn_;
        next_.notify_all();
    }

private:
    virtual_card::VirtualReader& reader_;
    std::size_t threads_;
    std::mutex mutex_;
    std::condition_variable next_;
    std::size_t turn_ = 0;
};

TEST_P(Certification, ThreadsThatShareOneCardTakeTurns) {
    constexpr std::size_t threadCount = 4;
    const Bytes map_ = card.readFile("mscp", "cmapfile").bytes;
    card.release();
    card.reader.clearExchanges();
    // The records of all but the first have a reader of their own behind them, and do not use it.
    std::vector<std::unique_ptr<PlatformSide>> sides;
    for (std::size_t at = 0; at < threadCount; ++at) {
        sides.push_back(std::make_unique<PlatformSide>(GetParam()));
        sides.back()->data.hScard = card.reader.cardHandle();
        sides.back()->data.hSCardCtx = card.reader.contextHandle();
    }
    putBehindTheSeam(card.reader.seam());
    Turns turns(card.reader, threadCount);
    const auto journey = [&](std::size_t thread) {
        PlatformSide& side = *sides[thread];
        for (int round = 0; round < 2; ++round) {
            turns.take(thread, [&] { EXPECT_EQ(side.acquire(), 0u); });
            turns.take(thread, [&] { EXPECT_EQ(side.readFile("mscp", "cmapfile").bytes, map_); });
            for (BYTE container = 0; container < side.containers(); ++container) {
                turns.take(thread, [&] { EXPECT_TRUE(side.signsTruly(container)); });
            }
            turns.take(thread, [&] {
                if (thread == 0) {
                    EXPECT_EQ(side.authenticate(1, "9999"), status::wrongPin);
                }
            });
            turns.take(thread, [&] { side.release(); });
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t at = 0; at < threadCount; ++at) threads.emplace_back(journey, at);
    for (std::thread& thread : threads) thread.join();
    for (const auto& side : sides) EXPECT_TRUE(side->reader.exchanges().empty());
    EXPECT_FALSE(card.reader.exchanges().empty());
    EXPECT_EQ(card.reader.openTransactions(), 0);
}

}  // namespace
}  // namespace boundary
