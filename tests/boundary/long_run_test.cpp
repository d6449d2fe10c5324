// Whether anything grows: acquisitions and deletions, loads and unloads, with the memory and the
// handles of the process counted before and after. KELMORA_ROUNDS=10000 is the long form
// (`make long`).
#include <cstdio>
#include <cstdlib>

#include "platform_side.h"
#include "resources.h"
#include "rounds.h"

namespace boundary {
namespace {

// The rounds ahead of the first count: what is made once is made by then.
constexpr int warmUp = 3;

void acquireAndDelete(PlatformSide& card) {
    card.acquireOrFail();
    card.release();
    card.reader.clearExchanges();
}

// What the count may be off by, however often anything was done: a sanitizer's own goes up and down
// by some times 512 bytes.
constexpr long long unrest = 4'096;

// The bytes that so many certificates cost whose handles are given up.
long long costOfCertificates(const Bytes& encoded, int count) {
    std::vector<PCCERT_CONTEXT> held(static_cast<std::size_t>(count));
    const Resources before = resourcesOfTheProcess();
    for (PCCERT_CONTEXT& certificate : held) {
        certificate =
            CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, encoded.data(),
                                         static_cast<DWORD>(encoded.size()));
    }
    const long long cost = resourcesOfTheProcess().bytes - before.bytes;
    for (const PCCERT_CONTEXT certificate : held) CertFreeCertificateContext(certificate);
    return cost;
}

class LongRun : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(EveryCard, LongRun, ::testing::ValuesIn(allCardTypes()));

TEST_P(LongRun, OfAcquisitionsLeavesTheCertificateThatIsGivenUpAndNothingElse) {
    PlatformSide card(GetParam());
    const int count = rounds(100, 10'000);
    for (int round = 0; round < warmUp; ++round) acquireAndDelete(card);
    const Resources before = resourcesOfTheProcess();
    for (int round = 0; round < count; ++round) acquireAndDelete(card);
    const Resources after = resourcesOfTheProcess();

    const long long grown = after.bytes - before.bytes;
    const double bytesARound = static_cast<double>(grown) / count;
    std::printf("card %d: %d acquisitions, %.1f bytes a round, %+ld handles, %+ld GDI objects\n",
                GetParam(), count, bytesARound, after.handles - before.handles,
                after.gdiObjects - before.gdiObjects);
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.gdiObjects, before.gdiObjects);
    long long meant = 0;
    if (card.containers() > 2) {
        card.acquireOrFail();
        meant = costOfCertificates(card.certificate(2), count);
        card.release();
        EXPECT_GT(meant, 0);
    }
    EXPECT_LE(std::abs(grown - meant), unrest) << "meant are " << meant << " bytes";
}

TEST(LongRunOfTheLibrary, LoadedAndUnloadedLeavesNothing) {
    const int count = rounds(100, 1'000);
    PlatformSide card(3);  // Of this one nothing is given up.
    const auto loadAndUnload = [&] {
        const LibraryCopy copy;
        ASSERT_EQ(card.acquire(copy.acquireContext()), 0u);
        card.release();
        card.reader.clearExchanges();
    };
    for (int round = 0; round < warmUp; ++round) loadAndUnload();
    const Resources before = resourcesOfTheProcess();
    for (int round = 0; round < count; ++round) loadAndUnload();
    const Resources after = resourcesOfTheProcess();
    std::printf("%d loads: %.1f bytes a round, %+ld handles, %+ld GDI objects\n", count,
                static_cast<double>(after.bytes - before.bytes) / count,
                after.handles - before.handles, after.gdiObjects - before.gdiObjects);
    EXPECT_LE(std::abs(after.bytes - before.bytes), unrest);
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.gdiObjects, before.gdiObjects);
    EXPECT_FALSE(LibraryCopy::isLoaded());
}

}  // namespace
}  // namespace boundary
