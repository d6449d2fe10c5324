#include <algorithm>
#include <array>

#include "pin/dialog_double.h"
#include "pin/pin_fixture.h"
#include "session/entry_points.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

constexpr DWORD untouched = 0xABCD;

constexpr const char* verifySixDigits = "00 20 00 11 06 313233343536";

LogLine entryLine(const std::string& pinId, const std::string& flags) {
    return authenticationLine("Entering the function, with parameters, PinId:'" + pinId +
                              "' dwFlags:'" + flags + "'");
}

// The lines of the property that tells the kind of PIN.
LogLines withProperty(const LogLine& entry, const LogLines& rest) {
    LogLines lines{entry,
                   {"CardGetProperty", "Entering the function"},
                   {"CardGetProperty", "with parameters wszProperty: 'PIN Information'"},
                   {"CardGetProperty", exited(status::success)}};
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
}

// No companion application: the PIN comes from the platform's prompt.
class Authentication : public ::testing::Test {
protected:
    Authentication() { dialog.startCommand.reset(); }

    PlatformCallsGuard guard;
    ScriptedCard card;
    DialogDouble dialog;
    LogCapture log;
    AcquiredPinCard acquired{CardType::type3};
    ByteVector pin = bytes("313233343536");
    BYTE* sessionPin = nullptr;
    DWORD sessionPinSize = untouched;
    DWORD attempts = untouched;

    DWORD authenticate(PIN_ID pinId, DWORD flags = 0) {
        return CardAuthenticateEx(&acquired.data, pinId, flags, pin.data(),
                                  static_cast<DWORD>(pin.size()), &sessionPin, &sessionPinSize,
                                  &attempts);
    }
    // The user's PIN with that answer to VERIFY.
    void expectVerify(const std::string& answer) {
        expectLimitsByGetData(card, "11", 4, 12);
        card.expect(selectRootCommand, "9000").expect(verifySixDigits, answer);
    }
};

TEST_F(Authentication, ARightPinLeavesTheAttemptsUntouched) {
    expectVerify("9000");
    EXPECT_EQ(authenticate(1), 0u);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(card.statusCalls(), 1);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {authenticationExit(status::success)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Authentication, VerifiesAnOpenPinAllTheSame) {
    expectVerify("9000");
    EXPECT_EQ(authenticate(1), 0u);
    expectVerify("9000");
    EXPECT_EQ(authenticate(1), 0u);
}

TEST_F(Authentication, AWrongPinTellsTheAttempts) {
    expectVerify("63C2");
    EXPECT_EQ(authenticate(1), status::wrongPin);
    EXPECT_EQ(attempts, 2u);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {refusedPinExit}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_80: PIN attempts remaining: 2."}}));
}

TEST_F(Authentication, ABlockedPinTellsNoAttempts) {
    expectVerify("6984");
    EXPECT_EQ(authenticate(1), status::blockedPin);
    EXPECT_EQ(attempts, 0u);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {refusedPinExit}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_80: PIN attempts remaining: 0."}}));
}

TEST_F(Authentication, TheLastAttemptIsAWrongPinWhicheverOfTheTwoAnswersTellsIt) {
    for (const char* answer : {"63C0", "6983"}) {
        attempts = untouched;
        expectVerify(answer);
        EXPECT_EQ(authenticate(1), status::wrongPin);
        EXPECT_EQ(attempts, 0u);
    }
}

TEST_F(Authentication, TheAttemptsOfACardThatDoesNotSayArriveAsMinus1) {
    expectVerify("6300");
    EXPECT_EQ(authenticate(1), status::wrongPin);
    EXPECT_EQ(attempts, 0xFFFFFFFF);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_80: PIN attempts remaining: -1."}}));
}

TEST_F(Authentication, ACallerWithoutAttemptsGetsNoLineOnThem) {
    expectVerify("63C2");
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0, pin.data(), 6, nullptr, nullptr, nullptr),
              status::wrongPin);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {refusedPinExit}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Authentication, RefusesANullRecord) {
    EXPECT_EQ(CardAuthenticateEx(nullptr, 1, 64, pin.data(), 6, nullptr, nullptr, &attempts),
              status::invalidParameter);
    EXPECT_EQ(log.file(), LogLines{entryLine("1", "64")});
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_71: pCardData is NULL."}}));
}

TEST_F(Authentication, RefusesARecordWithoutAContextBeforeAnyCall) {
    acquired.data.hSCardCtx = 0;
    EXPECT_EQ(authenticate(1), status::invalidParameter);
    EXPECT_EQ(card.statusCalls(), 0);
    EXPECT_EQ(log.file(),
              (LogLines{entryLine("1", "0"), authenticationExit(status::invalidParameter)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Authentication, RefusesPinId5WithNoTrafficBeyondTheProtocolQuery) {
    for (const DWORD pinId : {5u, 0u, 0xFFFFFFFFu}) {
        const int before = card.statusCalls();
        EXPECT_EQ(authenticate(pinId), status::invalidParameter);
        EXPECT_EQ(card.statusCalls(), before + 1);
        EXPECT_TRUE(card.exchanges().empty());
        EXPECT_EQ(log.file(), LogLines{entryLine(std::to_string(pinId), "0")});
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_72: PinId is invalid."}}));
    }
    EXPECT_EQ(dialog.calls, std::vector<std::string>{});
}

TEST_F(Authentication, EndsAsUnexpectedWhenTheKindOfPinCannotBeTold) {
    acquired.data.pfnCspAlloc = [](SIZE_T) -> LPVOID { return nullptr; };
    EXPECT_EQ(authenticate(1), status::unexpected);
    EXPECT_EQ(log.file(),
              (LogLines{entryLine("1", "0"),
                        {"CardGetProperty", "Entering the function"},
                        {"CardGetProperty", "with parameters wszProperty: 'PIN Information'"},
                        {"CardGetProperty", exited(status::notEnoughMemory)},
                        authenticationExit(status::unexpected)}));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_21: Out-of-memory (PFN_CSP_ALLOC)."}}));
}

TEST_F(Authentication, RefusesANullPinFromThePlatform) {
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0, nullptr, 6, nullptr, nullptr, &attempts),
              status::invalidParameter);
    EXPECT_EQ(log.file(),
              withProperty(entryLine("1", "0"), {authenticationExit(status::invalidParameter)}));
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG", "CMR_73: pbPinData is NULL and PIN type is not external or empty."}}));
}

TEST_F(Authentication, RefusesSessionPinsFromThePlatformsPrompt) {
    EXPECT_EQ(authenticate(1, 0x10000000), status::unsupportedFeature);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "268435456"),
                                       {authenticationExit(status::unsupportedFeature)}));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "CMR_66: Session PIN generation is not supported."}}));
    EXPECT_EQ(authenticate(1, 0x20000000), status::unsupportedFeature);
    EXPECT_EQ(log.file(),
              withProperty(entryLine("1", "536870912"),
                           {authenticationLine("CMR_67: Session PIN validation is not supported."),
                            authenticationExit(status::unsupportedFeature)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Authentication, RefusesBothSessionFlagsTogether) {
    EXPECT_EQ(authenticate(1, 0x30000000), status::invalidParameter);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "805306368"),
                                       {authenticationExit(status::invalidParameter)}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_74: dwFlags is invalid."}}));
}

TEST_F(Authentication, AcceptsASilentContextWithThePlatformsPinLikeNoFlags) {
    expectVerify("9000");
    EXPECT_EQ(authenticate(1, 0x40), 0u);
    EXPECT_EQ(log.file(),
              withProperty(entryLine("1", "64"), {authenticationExit(status::success)}));
}

TEST_F(Authentication, APinBelowTheMinimumIsAWrongPinWithNoVerifySent) {
    pin = bytes("313233");
    expectLimitsByGetData(card, "11", 4, 12);
    EXPECT_EQ(authenticate(1), status::wrongPin);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "lambda attemptVerifyPin: Error."},
                                      {"DEBUG", "CMR_75: cbPinData is invalid."}}));
}

TEST_F(Authentication, ALengthOf0WithAPinIsAWrongPin) {
    expectLimitsByGetData(card, "11", 4, 12);
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0, pin.data(), 0, nullptr, nullptr, &attempts),
              status::wrongPin);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "lambda attemptVerifyPin: Error."},
                                      {"DEBUG", "CMR_75: cbPinData is invalid."}}));
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {}));
}

TEST_F(Authentication, ALengthOf0IsAWrongPinWhateverACardWithoutAMinimumAnswers) {
    for (const char* answer : {"9000", "63C2", "6984", "6700"}) {
        expectLimitsByGetData(card, "11", 0, 12);
        card.expect(selectRootCommand, "9000").expect("00 20 00 11 00", answer);
        EXPECT_EQ(
            CardAuthenticateEx(&acquired.data, 1, 0, pin.data(), 0, nullptr, nullptr, &attempts),
            status::wrongPin);
        EXPECT_EQ(attempts, untouched);
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_75: cbPinData is invalid."}}));
        EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {}));
    }
}

TEST_F(Authentication, APinThatTheCardRefusesInFormIsAWrongPin) {
    expectVerify("6700");
    EXPECT_EQ(authenticate(1), status::wrongPin);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_75: cbPinData is invalid."}}));
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"), {}));
}

TEST_F(Authentication, AReaderRemovedDuringVerifyAborts) {
    expectLimitsByGetData(card, "11", 4, 12);
    card.expect(selectRootCommand, "9000").expectFailure(verifySixDigits, SCARD_W_REMOVED_CARD);
    EXPECT_EQ(authenticate(1), status::unexpected);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(log.file(),
              withProperty(entryLine("1", "0"),
                           {{"Transmit",
                             "ERROR: Failed to transmit an apdu. Tried reconnecting: false. Error: "
                             "0x-7fefff97"},
                            authenticationLine("Failed to verify PIN. Aborting...")}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Authentication, AThrownPointerAborts) {
    expectVerify("6D00");
    EXPECT_EQ(authenticate(1), status::unexpected);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"),
                                       {authenticationLine("Failed to verify PIN. Aborting...")}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "Error: Failed to verify PIN. Exception."}}));
}

TEST_F(Authentication, ARefusedSelectionAborts) {
    expectLimitsByGetData(card, "11", 4, 12);
    card.expect(selectRootCommand, "6A82");
    EXPECT_EQ(authenticate(1), status::unexpected);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"),
                                       {authenticationLine("Failed to verify PIN. Aborting...")}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(Authentication, ARefusedGetDataAborts) {
    card.expect(selectApplication, "9000").expect(selectRootCommand, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8111 03 7F4180 00", "6982");
    EXPECT_EQ(authenticate(1), status::unexpected);
    EXPECT_EQ(
        log.file(),
        withProperty(entryLine("1", "0"),
                     {authenticationLine("Pin length validation failed with an unknown exception."),
                      authenticationLine("Failed to verify PIN. Aborting...")}));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "Error: Failed to read PIN properties. Exception."}}));
}

TEST_F(Authentication, APinTooLongToBePaddedAborts) {
    AcquiredPinCard type5(CardType::type5);
    const ByteVector longPin(13, '1');
    expectLimitsInDirectories(card, {{4, 16}});
    EXPECT_EQ(CardAuthenticateEx(&type5.data, 1, 0, const_cast<PBYTE>(longPin.data()), 13, nullptr,
                                 nullptr, nullptr),
              status::unexpected);
    EXPECT_EQ(log.file(), withProperty(entryLine("1", "0"),
                                       {authenticationLine("Failed to verify PIN. Aborting...")}));
}

TEST_F(Authentication, VerifiesEveryPinIdByItsReference) {
    struct Row {
        PIN_ID pinId;
        const char* reference;
    };
    for (const Row& row : {Row{2, "12"}, Row{3, "12"}}) {
        expectLimitsByGetData(card, row.reference, 4, 12);
        card.expect(selectRootCommand, "9000");
        card.expect(std::string("00 20 00") + row.reference + "06 313233343536", "9000");
        EXPECT_EQ(authenticate(row.pinId), 0u);
    }
    card.expect(selectApplication, "9000");
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8195 03 7F4180 00", pinProperties(6, 8));
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 20 00 95 06 313233343536", "9000");
    EXPECT_EQ(authenticate(4), 0u);
}

TEST_F(Authentication, NoPinReachesEitherLog) {
    expectVerify("63C2");
    authenticate(1);
    const auto holdsPin = [](const LogLines& lines) {
        return std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
            return line.message.find("123456") != std::string::npos ||
                   line.message.find("31 32") != std::string::npos ||
                   line.message.find("3132") != std::string::npos;
        });
    };
    EXPECT_FALSE(holdsPin(log.file()));
    EXPECT_FALSE(holdsPin(log.output()));
}

class AuthenticatePin : public Authentication {
protected:
    DWORD authenticateAs(const WCHAR* user) {
        return CardAuthenticatePin(&acquired.data, const_cast<LPWSTR>(user), pin.data(),
                                   static_cast<DWORD>(pin.size()), &attempts);
    }
    static LogLines withEntry(const LogLines& rest) {
        LogLines lines{{"CardAuthenticatePin", "Entering the function"}};
        lines.insert(lines.end(), rest.begin(), rest.end());
        return lines;
    }
};

TEST_F(AuthenticatePin, RefusesANullUserWithoutACmrLine) {
    EXPECT_EQ(authenticateAs(nullptr), status::invalidParameter);
    EXPECT_EQ(log.file(), withEntry({}));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(card.statusCalls(), 0);
}

TEST_F(AuthenticatePin, TakesUserForPinId1) {
    expectVerify("63C1");
    EXPECT_EQ(authenticateAs(WIDE_TEXT("user")), status::wrongPin);
    EXPECT_EQ(attempts, 1u);
    EXPECT_EQ(log.file(), withEntry(withProperty(entryLine("1", "0"), {refusedPinExit})));
}

TEST_F(AuthenticatePin, TakesAdminForPinId2) {
    expectLimitsByGetData(card, "12", 4, 12);
    card.expect(selectRootCommand, "9000").expect("00 20 00 12 06 313233343536", "9000");
    EXPECT_EQ(authenticateAs(WIDE_TEXT("admin")), 0u);
    EXPECT_EQ(log.file(),
              withEntry(withProperty(entryLine("2", "0"), {authenticationExit(status::success)})));
}

TEST_F(AuthenticatePin, RefusesAnyOtherTextByTheInvalidPinId) {
    for (const WCHAR* user : {WIDE_TEXT("USER"), WIDE_TEXT("User"), WIDE_TEXT(""),
                              WIDE_TEXT("user "), WIDE_TEXT("use"), WIDE_TEXT("ADMIN")}) {
        EXPECT_EQ(authenticateAs(user), status::invalidParameter);
        EXPECT_EQ(log.file(), withEntry({entryLine("0", "0")}));
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_72: PinId is invalid."}}));
    }
    EXPECT_TRUE(card.exchanges().empty());
}

TEST_F(AuthenticatePin, LeavesANullRecordToTheOtherEntryPoint) {
    WideString user = WIDE_TEXT("user");
    EXPECT_EQ(CardAuthenticatePin(nullptr, user.data(), pin.data(), 6, &attempts),
              status::invalidParameter);
    EXPECT_EQ(log.file(), withEntry({entryLine("1", "0")}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_71: pCardData is NULL."}}));
}

}  // namespace
}  // namespace KelmoraID
