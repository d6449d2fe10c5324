#include "pin/authentication_checks.h"

#include "pin/pin_fixture.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

class AuthenticationChecks : public ::testing::Test {
protected:
    LogCapture log;

    static std::optional<DWORD> check(SECRET_TYPE pinType, DWORD dwFlags, bool hasPin = true,
                                      bool hasSessionPointers = true, DWORD pinInfoFlags = 0) {
        PIN_INFO pinInfo{};
        pinInfo.PinType = pinType;
        pinInfo.dwFlags = pinInfoFlags;
        return checkAuthentication(pinInfo, {dwFlags, hasPin, hasSessionPointers});
    }
};

TEST_F(AuthenticationChecks, GoOnWithoutALineForEitherKindOfPin) {
    EXPECT_EQ(check(AlphaNumericPinType, 0), std::nullopt);
    EXPECT_EQ(check(ExternalPinType, 0), std::nullopt);
    EXPECT_EQ(check(ExternalPinType, 0, false), std::nullopt);
    EXPECT_EQ(check(ChallengeResponsePinType, 0), std::nullopt);
    EXPECT_EQ(check(AlphaNumericPinType, 0x40), std::nullopt);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(AuthenticationChecks, AnEmptyPinNeedsNoVerification) {
    EXPECT_EQ(check(EmptyPinType, 0xFFFFFFFF, false, false, 1), 0u);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{authenticationExit(status::success)});
}

TEST_F(AuthenticationChecks, RefuseSilentUseOfAnExternalPinWithoutAnExitLine) {
    for (const DWORD flags : {0x40u, 0x20000040u, 0x41u}) {
        EXPECT_EQ(check(ExternalPinType, flags), status::unsupportedFeature);
        EXPECT_EQ(
            log.output(),
            (LogLines{{"DEBUG", "CMR_68: External authentication without UI is not supported."}}));
    }
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(AuthenticationChecks, RefuseANullPinThatIsNotExternal) {
    EXPECT_EQ(check(AlphaNumericPinType, 0x20000000, false), status::invalidParameter);
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG", "CMR_73: pbPinData is NULL and PIN type is not external or empty."}}));
    EXPECT_EQ(log.file(), LogLines{authenticationExit(status::invalidParameter)});
}

TEST_F(AuthenticationChecks, AllowASessionPinWithAnExternalPinOnly) {
    EXPECT_EQ(check(ExternalPinType, 0x10000000), std::nullopt);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(check(AlphaNumericPinType, 0x10000000), status::unsupportedFeature);
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "CMR_66: Session PIN generation is not supported."}}));
    EXPECT_EQ(check(AlphaNumericPinType, 0x10000040), status::unsupportedFeature);
    EXPECT_EQ(log.file(), (LogLines{authenticationExit(status::unsupportedFeature),
                                    authenticationExit(status::unsupportedFeature)}));
}

TEST_F(AuthenticationChecks, RefuseASessionPinWithoutBothPointers) {
    EXPECT_EQ(check(ExternalPinType, 0x10000000, false, false), status::invalidParameter);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(),
              (LogLines{{"CardAuthenticateEx",
                         "CMR_76: Generating a session PIN and ppbSessionPin or pcbSessionPin is "
                         "NULL."},
                        authenticationExit(status::invalidParameter)}));
}

TEST_F(AuthenticationChecks, RefuseSessionPinValidation) {
    for (const SECRET_TYPE pinType : {ExternalPinType, AlphaNumericPinType}) {
        EXPECT_EQ(check(pinType, 0x20000000), status::unsupportedFeature);
        EXPECT_EQ(log.output(), LogLines{});
        EXPECT_EQ(
            log.file(),
            (LogLines{{"CardAuthenticateEx", "CMR_67: Session PIN validation is not supported."},
                      authenticationExit(status::unsupportedFeature)}));
    }
}

TEST_F(AuthenticationChecks, RefuseAnyOtherFlags) {
    for (const DWORD flags : {1u, 0x30000000u, 0x80u, 0x10000001u, 0x80000000u}) {
        for (const SECRET_TYPE pinType : {ExternalPinType, AlphaNumericPinType}) {
            EXPECT_EQ(check(pinType, flags), status::invalidParameter);
            EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_74: dwFlags is invalid."}}));
            EXPECT_EQ(log.file(), LogLines{authenticationExit(status::invalidParameter)});
        }
    }
}

TEST_F(AuthenticationChecks, RefuseSecureEntryLast) {
    EXPECT_EQ(check(ExternalPinType, 0, true, true, 1), status::unexpected);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{authenticationExit(status::unexpected)});
    EXPECT_EQ(check(AlphaNumericPinType, 0, true, true, 3), status::unexpected);
    EXPECT_EQ(check(AlphaNumericPinType, 0, true, true, 2), std::nullopt);
    EXPECT_EQ(check(AlphaNumericPinType, 1, true, true, 1), status::invalidParameter);
}

}  // namespace
}  // namespace KelmoraID
