// What the driver gives up and never frees: handles, counted on their way to the platform and back.
// Only natively, where the linker puts the counting between the two.
#include <mutex>
#include <set>

#include "platform_side.h"
#include "support/thrown_pointers.h"
#include "virtual_card/virtual_card.h"

namespace {

std::mutex guard;  // Threads of other tests make certificates side by side.

// It outlives the program's end, when the leak checker looks: what it holds is no leak to report.
std::set<PCCERT_CONTEXT>& liveCertificates() {
    static auto* const live = new std::set<PCCERT_CONTEXT>;
    return *live;
}

}  // namespace

extern "C" PCCERT_CONTEXT WINAPI __real_CertCreateCertificateContext(DWORD, const BYTE*, DWORD);
extern "C" PCCERT_CONTEXT WINAPI __wrap_CertCreateCertificateContext(DWORD, const BYTE*, DWORD);
extern "C" BOOL WINAPI __real_CertFreeCertificateContext(PCCERT_CONTEXT);
extern "C" BOOL WINAPI __wrap_CertFreeCertificateContext(PCCERT_CONTEXT);

extern "C" PCCERT_CONTEXT WINAPI __wrap_CertCreateCertificateContext(DWORD encoding,
                                                                     const BYTE* bytes,
                                                                     DWORD size) {
    PCCERT_CONTEXT certificate = __real_CertCreateCertificateContext(encoding, bytes, size);
    if (certificate != nullptr) {
        const std::lock_guard lock(guard);
        liveCertificates().insert(certificate);
    }
    return certificate;
}

extern "C" BOOL WINAPI __wrap_CertFreeCertificateContext(PCCERT_CONTEXT certificate) {
    {
        const std::lock_guard lock(guard);
        liveCertificates().erase(certificate);
    }
    return __real_CertFreeCertificateContext(certificate);
}

namespace boundary {
namespace {

class GivenUp : public ::testing::TestWithParam<int> {};

TEST_P(GivenUp, IsTheCertificateOfTheSecondSigningKeyAlone) {
    const std::size_t before = liveCertificates().size();
    PlatformSide platform(GetParam());
    platform.acquireOrFail();
    const bool hasSecondSigningKey = virtual_card::findGeneration(GetParam())->keys.size() > 2;
    EXPECT_EQ(liveCertificates().size() - before, hasSecondSigningKey ? 3u : 2u);
    platform.release();
    EXPECT_EQ(liveCertificates().size() - before, hasSecondSigningKey ? 1u : 0u);
}

// Where a card is asked for the limits of its PINs: the error of the selection that failed and, in
// its place, that of the verification. Other cards fail by return values.
TEST_P(GivenUp, AreTheErrorsOfAPinWhoseLimitsTheCardDoesNotTell) {
    PlatformSide platform(GetParam());
    platform.acquireOrFail();
    const int before = KelmoraID::testing::thrownPointers();
    platform.reader.failTransmit(1, {virtual_card::Fault::Kind::TransportError, 0x8010002F});
    platform.authenticate(1, platform.pin(virtual_card::PinRole::Authentication));
    const bool isAskedForLimits = virtual_card::findGeneration(GetParam())->knowsGetData;
    EXPECT_EQ(KelmoraID::testing::thrownPointers() - before, isAskedForLimits ? 2 : 0);
}

INSTANTIATE_TEST_SUITE_P(CardType, GivenUp, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

}  // namespace
}  // namespace boundary
