// Sixteen threads, each with a context and a card of its own, do everything at once. Natively it is
// run under ThreadSanitizer too (`make threads`).
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "awaited_service.h"
#include "desktop.h"
#include "readers.h"
#include "refused_operations.h"
#include "rounds.h"
#include "support/statuses.h"

namespace boundary {
namespace {

constexpr std::size_t threadCount = 16;

// What went wrong, of all threads: a test framework need not stand being told from several.
class Complaints {
public:
    void expect(bool holds, int cardType, const char* what) {
        if (holds) return;
        const std::lock_guard guard(mutex_);
        texts_.push_back("card " + std::to_string(cardType) + ": " + what);
    }
    void report() const {
        for (const std::string& text : texts_) ADD_FAILURE() << text;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> texts_;
};

// Cards of all types in readers side by side, and a thread for each.
class Crowd {
public:
    Crowd() {
        for (std::size_t at = 0; at < threadCount; ++at) {
            cards_[at] = std::make_unique<PlatformSide>(typeOf(at));
        }
        for (const auto& card : cards_) readers_.add(*card);
    }

    template <typename Work>
    void each(Work work) {
        std::vector<std::thread> threads;
        std::atomic<std::size_t> ready = 0;
        for (std::size_t at = 0; at < threadCount; ++at) {
            threads.emplace_back([&, at] {
                ++ready;
                while (ready != threadCount) std::this_thread::yield();
                work(*cards_[at], typeOf(at), complaints);
            });
        }
        for (std::thread& thread : threads) thread.join();
        complaints.report();
    }

    /// A further reader, for a thread beside these.
    void add(PlatformSide& card) { readers_.add(card); }

    Complaints complaints;

private:
    static int typeOf(std::size_t at) {
        static const std::vector<int> types = allCardTypes();
        return types[at % types.size()];
    }

    Readers readers_;
    std::array<std::unique_ptr<PlatformSide>, threadCount> cards_;
};

bool signsTrulyByPss(PlatformSide& card) {
    const std::string message = "what the user agrees to";
    Bytes hash = hashOf("SHA-256", message);
    const Answer answer = card.sign(card.pssInfo(0, hash));
    return answer.status == 0 &&
           isSignature(card.certificate(0), "EMSA4(SHA-256)", message, reversed(answer.bytes));
}

// Each entry point.
void goThroughAll(PlatformSide& card, int type, Complaints& complaints) {
    const auto expect = [&](bool holds, const char* what) { complaints.expect(holds, type, what); };
    card.reader.clearExchanges();
    expect(card.acquire() == 0, "CardAcquireContext");
    if (!card.acquired) return;
    expect(card.readFile(nullptr, "cardid").bytes.size() == 16, "CardReadFile");
    expect(card.listFiles("mscp").status == 0, "CardEnumFiles");
    char mscp[] = "mscp";
    char cmapfile[] = "cmapfile";
    CARD_FILE_INFO file{};
    file.dwVersion = 1;
    expect(card.data.pfnCardGetFileInfo(&card.data, mscp, cmapfile, &file) == 0, "CardGetFileInfo");
    CARD_CAPABILITIES capabilities{};
    capabilities.dwVersion = 1;
    expect(card.data.pfnCardQueryCapabilities(&card.data, &capabilities) == 0,
           "CardQueryCapabilities");
    CARD_FREE_SPACE_INFO space{};
    space.dwVersion = 1;
    expect(card.data.pfnCardQueryFreeSpace(&card.data, 0, &space) == 0, "CardQueryFreeSpace");
    CARD_KEY_SIZES sizes{};
    sizes.dwVersion = 1;
    expect(card.data.pfnCardQueryKeySizes(&card.data, AT_KEYEXCHANGE, 0, &sizes) == 0,
           "CardQueryKeySizes");
    expect(card.property(WIDE_TEXT("PIN Information"), 1).status == 0, "CardGetProperty");
    expect(card.property(WIDE_TEXT("Key Sizes"), 1).status == 0, "CardGetProperty, key sizes");
    expect(card.containerProperty(0, WIDE_TEXT("PIN Identifier")).status == 0,
           "CardGetContainerProperty");
    expect(!card.publicKey(0).empty(), "CardGetContainerInfo");
    WCHAR text[] = WIDE_TEXT("context");
    expect(card.data.pfnCardSetProperty(&card.data, WIDE_TEXT("PIN Context String"),
                                        reinterpret_cast<PBYTE>(text), 8, 0) == 0,
           "CardSetProperty");
    // A wrong PIN first, so that the threads' paths part.
    expect(card.authenticate(1, "9999") == status::wrongPin, "CardAuthenticateEx, a wrong PIN");
    for (BYTE container = 0; container < card.containers(); ++container) {
        expect(card.signsTruly(container), "CardSignData");
    }
    WCHAR user[] = WIDE_TEXT("user");
    std::string pin = card.pin(virtual_card::PinRole::Authentication);
    expect(card.data.pfnCardAuthenticatePin(&card.data, user, reinterpret_cast<PBYTE>(pin.data()),
                                            static_cast<DWORD>(pin.size()), nullptr) == 0,
           "CardAuthenticatePin");
    if (card.isEcKey(0)) {
        BYTE index = 0;
        expect(card.agreeWithItself(&index) == 0, "CardConstructDHAgreement");
        expect(card.derive(index).bytes.size() == 20, "CardDeriveKey");
        expect(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0) == 0,
               "CardDestroyDHAgreement");
    } else {
        expect(signsTrulyByPss(card), "CardSignData, PSS");
        const Bytes block = encryptedTo(card.certificate(0), "a secret");
        expect(card.decrypt(0, block).status == 0, "CardRSADecrypt");
    }
    for (const RefusedOperation& operation : refusedOperations) {
        const DWORD status = operation.call(card.data, &card.data);
        expect(status == status::unsupportedFeature || status == status::unexpected,
               operation.name);
    }
    card.acquired = false;
    expect(card.data.pfnCardDeleteContext(&card.data) == 0, "CardDeleteContext");
}

// A PIN from the companion application's dialog, a wrong one first.
void goThroughTheDialog(PlatformSide& card, int type, Complaints& complaints) {
    CodeEntryScript* const script = Desktop::scriptOfThisThread();
    *script = {};
    const std::string pin = card.pin(virtual_card::PinRole::Authentication);
    script->pins[0] = "98765432";
    script->pins[1] = pin.c_str();
    card.reader.clearExchanges();
    complaints.expect(card.acquire() == 0, type, "CardAcquireContext");
    if (!card.acquired) return;
    DWORD attempts = 0;
    complaints.expect(card.data.pfnCardAuthenticateEx(&card.data, 1, 0, nullptr, 0, nullptr,
                                                      nullptr, &attempts) == 0,
                      type, "CardAuthenticateEx, dialog");
    complaints.expect(script->calls == 2, type, "the dialog is shown twice");
    complaints.expect(attempts > 0 && script->shown[1].attempts == static_cast<int>(attempts), type,
                      "and tells the attempts");
    complaints.expect(!card.signMessage(0, "a message").bytes.empty(), type, "CardSignData");
    card.release();
}

TEST(Threads, AskForPinsByTheDialogAtOnce) {
    Desktop desktop;
    ASSERT_TRUE(Desktop::isUp());
    Crowd crowd;
    crowd.each([](PlatformSide& card, int type, Complaints& complaints) {
        for (int round = 0; round < rounds(1, 20); ++round) {
            goThroughTheDialog(card, type, complaints);
        }
    });
}

TEST(Threads, DoAllJourneysAtOnce) {
    Crowd crowd;
    crowd.each([](PlatformSide& card, int type, Complaints& complaints) {
        for (int round = 0; round < rounds(1, 20); ++round) goThroughAll(card, type, complaints);
    });
}

// The reply to a pairing comes when another thread has acquired a card meanwhile, or all that are
// still at work wait for one; should neither happen in time, no reply waits any more.
class Beside {
public:
    void wait() {
        const int before = acquisitions;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
        ++waiting;
        while (acquisitions == before && waiting < working && !isGivenUp) {
            if (std::chrono::steady_clock::now() > end) isGivenUp = true;
            std::this_thread::yield();
        }
        --waiting;
        if (acquisitions != before) ++overlaps;
    }
    std::atomic<int> acquisitions = 0;
    std::atomic<int> working = threadCount;
    std::atomic<int> overlaps = 0;

private:
    std::atomic<int> waiting = 0;
    std::atomic<bool> isGivenUp = false;
};

TEST(Threads, AcquireBesidePairings) {
    {
        Beside beside;
        const AwaitedService service([&] { beside.wait(); });
        writeSetting(Setting::serviceAddresses, service.address());
        Crowd crowd;
        crowd.each([&](PlatformSide& card, int type, Complaints& complaints) {
            for (int round = 0; round < rounds(2, 100); ++round) {
                card.reader.clearExchanges();
                complaints.expect(card.acquire() == 0, type, "CardAcquireContext");
                ++beside.acquisitions;
                card.release();
            }
            --beside.working;
        });
        EXPECT_TRUE(service.hasReplied());
        EXPECT_GT(beside.overlaps, 0);
    }
    writeSetting(Setting::serviceAddresses, "");
}

TEST(Threads, GoOnWhileTheLibraryIsLoadedAndUnloaded) {
    PlatformSide own(3);  // The loader's card.
    Crowd crowd;
    crowd.add(own);
    std::atomic<bool> isDone = false;
    int loads = 0;
    std::thread loader([&] {
        while (!isDone) {
            const LibraryCopy copy;
            if (own.acquire(copy.acquireContext()) != 0) break;
            own.release();
            own.reader.clearExchanges();
            ++loads;
        }
    });
    crowd.each([](PlatformSide& card, int type, Complaints& complaints) {
        for (int round = 0; round < rounds(1, 20); ++round) goThroughAll(card, type, complaints);
    });
    isDone = true;
    loader.join();
    EXPECT_GT(loads, 0);
    EXPECT_FALSE(own.acquired);
    EXPECT_FALSE(LibraryCopy::isLoaded());
}

}  // namespace
}  // namespace boundary
