// The external dialog as CardAuthenticateEx runs it.
#include "pin/dialog_loop.h"

#include "pin/dialog_double.h"
#include "pin/pin_fixture.h"
#include "session/entry_points.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;
using Calls = std::vector<std::string>;

constexpr DWORD untouched = 0xABCD;

constexpr const char* load = "load C:\\Program Files\\Kelmora\\CodeEntryLibrary.dll, 8";
constexpr const char* find = "find promptCodeEntryDefault";

// The calls of the library: the test of it, then those of the loop.
Calls withTest(const Calls& rest) {
    Calls calls = DialogDouble::callsOfOneTest();
    calls.insert(calls.end(), rest.begin(), rest.end());
    return calls;
}

const std::string zeros = std::string(12, '0') + '\0';

// A text in the buffer, with what stood behind it.
std::string buffer(const std::string& text, const std::string& before = zeros) {
    const std::string head = text + '\0';
    return head + before.substr(head.size());
}

class DialogLoop : public ::testing::Test {
protected:
    PlatformCallsGuard guard;
    ScriptedCard card;
    DialogDouble dialog;
    LogCapture log;
    AcquiredPinCard acquired{CardType::type3};
    DWORD attempts = untouched;

    DWORD authenticate(PIN_ID pinId = 1, DWORD flags = 0) {
        return CardAuthenticateEx(&acquired.data, pinId, flags, nullptr, 0, nullptr, nullptr,
                                  &attempts);
    }
    void expectLimits() { expectLimitsByGetData(card, "11", 4, 12); }
    void expectVerify(const std::string& pinHex, const std::string& answer) {
        expectLimits();
        card.expect(selectRootCommand, "9000");
        card.expect("00 20 00 11" + pinHex, answer);
    }
    void expectQuery(const std::string& answer) {
        card.expect(selectRootCommand, "9000").expect("00 20 00 11", answer);
    }
    static LogLines fileLines(const LogLines& rest, const std::string& flags = "0",
                              const std::string& pinId = "1") {
        LogLines lines{authenticationLine("Entering the function, with parameters, PinId:'" +
                                          pinId + "' dwFlags:'" + flags + "'"),
                       {"CardGetProperty", "Entering the function"},
                       {"CardGetProperty", "with parameters wszProperty: 'PIN Information'"},
                       {"CardGetProperty", exited(status::success)}};
        lines.insert(lines.end(), rest.begin(), rest.end());
        return lines;
    }
    static PromptCall prompt(std::int32_t reason, std::int32_t shownAttempts,
                             const std::string& standing, std::int32_t kind = 0) {
        return {kind, 30, 1, reason, std::nullopt, std::nullopt, shownAttempts, 0, standing};
    }
};

TEST_F(DialogLoop, TakesTheRightPinAtTheFirstCall) {
    dialog.replies = {{"123456"}};
    expectVerify("06 313233343536", "9000");
    EXPECT_EQ(authenticate(), 0u);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(dialog.prompts, (std::vector<PromptCall>{prompt(0, 5, zeros)}));
    EXPECT_EQ(dialog.calls, withTest({load, find, "free"}));
    EXPECT_EQ(log.file(), fileLines({authenticationExit(status::success)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(DialogLoop, GivesThePlatformsPinNoPart) {
    dialog.replies = {{"123456"}};
    expectVerify("06 313233343536", "9000");
    ByteVector pin = bytes("39393939");
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0, pin.data(), 4, nullptr, nullptr, &attempts),
              0u);
}

TEST_F(DialogLoop, PadsAsTheCardWantsIt) {
    AcquiredPinCard type5(CardType::type5);
    dialog.replies = {{"123456"}};
    expectLimitsInDirectories(card, {{4, 12}});
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 11 0C 313233343536000000000000", "9000");
    EXPECT_EQ(CardAuthenticateEx(&type5.data, 1, 0, nullptr, 0, nullptr, nullptr, nullptr), 0u);
}

TEST_F(DialogLoop, TellsTheKindOfCodeByThePinId) {
    const std::pair<PIN_ID, std::int32_t> kinds[] = {{1, 0}, {2, 2}, {3, 2}, {4, 1}};
    for (const auto& [pinId, kind] : kinds) {
        dialog.prompts.clear();
        dialog.replies = {{"", 1}};
        EXPECT_EQ(authenticate(pinId), status::wrongPin);
        EXPECT_EQ(dialog.prompts, (std::vector<PromptCall>{prompt(0, 5, zeros, kind)}));
    }
}

TEST_F(DialogLoop, ShowsThePinContextWithItsTitle) {
    acquired.context.pinContextString = "Allekirjoitus \xC3\xA4";
    dialog.replies = {{"1", 0}, {"", 7}};
    expectLimits();
    EXPECT_EQ(authenticate(), status::wrongPin);
    ASSERT_EQ(dialog.prompts.size(), 2u);
    for (const PromptCall& call : dialog.prompts) {
        EXPECT_EQ(call.title, "Message");
        EXPECT_EQ(call.text, "Allekirjoitus \xC3\xA4");
    }
}

TEST_F(DialogLoop, ShowsNoTextWithoutAPinContext) {
    dialog.replies = {{"", 1}};
    authenticate();
    ASSERT_EQ(dialog.prompts.size(), 1u);
    EXPECT_EQ(dialog.prompts[0].title, std::nullopt);
    EXPECT_EQ(dialog.prompts[0].text, std::nullopt);
}

TEST_F(DialogLoop, IsGivenNoWindow) {
    acquired.context.parentWindow = 0x1234;
    dialog.replies = {{"", 1}};
    EXPECT_EQ(authenticate(), status::wrongPin);
    EXPECT_EQ(dialog.prompts, (std::vector<PromptCall>{prompt(0, 5, zeros)}));
    EXPECT_EQ(acquired.context.parentWindow, 0x1234u);
}

TEST_F(DialogLoop, CancelledAtTheFirstCallIsAWrongPinWithNothingSent) {
    for (const std::int32_t result : {1, -1, 0x7FFFFFFF}) {
        dialog.calls.clear();
        dialog.replies = {{"123456", result}};
        EXPECT_EQ(authenticate(), status::wrongPin);
        EXPECT_EQ(attempts, untouched);
        EXPECT_TRUE(card.exchanges().empty());
        EXPECT_EQ(dialog.calls, withTest({load, find, "free"}));
        EXPECT_EQ(log.file(), fileLines({authenticationExit(status::wrongPin)}));
        EXPECT_EQ(log.output(), LogLines{});
    }
}

TEST_F(DialogLoop, ShowsTheAttemptsAfterAWrongPinAndKeepsThemAfterAnInvalidLength) {
    dialog.replies = {{"123456"}, {"12"}, {"654321"}};
    expectVerify("06 313233343536", "63C2");
    expectQuery("63C2");
    expectLimits();
    expectVerify("06 363534333231", "9000");
    EXPECT_EQ(authenticate(), 0u);
    EXPECT_EQ(attempts, 2u);
    // The buffer isn't cleared between the tries.
    const std::string afterFirst = buffer("123456");
    const std::string afterSecond = buffer("12", afterFirst);
    EXPECT_EQ(dialog.prompts,
              (std::vector<PromptCall>{prompt(0, 5, zeros), prompt(2, 2, afterFirst),
                                       prompt(1, 2, afterSecond)}));
    EXPECT_EQ(dialog.calls, withTest({load, find, "free"}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_80: PIN attempts remaining: 2."},
                                      {"DEBUG", "lambda attemptVerifyPin: Error."},
                                      {"DEBUG", "PIN length was invalid. Try again."}}));
    EXPECT_EQ(log.file(), fileLines({authenticationExit(status::success)}));
}

TEST_F(DialogLoop, ShowsFiveAttemptsAfterAnInvalidLengthAtFirst) {
    dialog.replies = {{"12"}, {"", 1}};
    expectLimits();
    EXPECT_EQ(authenticate(), status::wrongPin);
    EXPECT_EQ(dialog.prompts,
              (std::vector<PromptCall>{prompt(0, 5, zeros), prompt(1, 5, buffer("12"))}));
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(log.file(), fileLines({authenticationExit(status::wrongPin)}));
}

TEST_F(DialogLoop, TakesAnAnswer6700ForAnInvalidLength) {
    dialog.replies = {{"123456"}, {"", 1}};
    expectVerify("06 313233343536", "6700");
    EXPECT_EQ(authenticate(), status::wrongPin);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "PIN length was invalid. Try again."}}));
    EXPECT_EQ(dialog.prompts,
              (std::vector<PromptCall>{prompt(0, 5, zeros), prompt(1, 5, buffer("123456"))}));
}

TEST_F(DialogLoop, CancelledAfterAWrongPinKeepsTheAttemptsTold) {
    dialog.replies = {{"123456"}, {"", 1}};
    expectVerify("06 313233343536", "63C2");
    expectQuery("63C2");
    EXPECT_EQ(authenticate(), status::wrongPin);
    EXPECT_EQ(attempts, 2u);
    EXPECT_EQ(log.file(), fileLines({authenticationExit(status::wrongPin)}));
    EXPECT_EQ(dialog.calls, withTest({load, find, "free"}));
}

TEST_F(DialogLoop, RunsWithoutAPlaceForTheAttempts) {
    dialog.replies = {{"123456"}, {"", 1}};
    expectVerify("06 313233343536", "63C2");
    expectQuery("63C2");
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0, nullptr, 0, nullptr, nullptr, nullptr),
              status::wrongPin);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(dialog.prompts.back(), prompt(2, 2, buffer("123456")));
}

TEST_F(DialogLoop, EndsWithTheLastAttemptAndLeavesTheAttemptsUnwritten) {
    // The first two leave the PIN merely wrong, and the attempts unwritten in all cases.
    const std::pair<const char*, DWORD> lastAnswers[] = {
        {"63C0", status::wrongPin}, {"6983", status::wrongPin}, {"6984", status::blockedPin}};
    for (const auto& [answer, status] : lastAnswers) {
        SCOPED_TRACE(answer);
        dialog.calls.clear();
        dialog.replies = {{"123456"}};
        expectVerify("06 313233343536", answer);
        EXPECT_EQ(authenticate(), status);
        EXPECT_EQ(attempts, untouched);
        EXPECT_EQ(log.file(), fileLines({refusedPinExit}));
        EXPECT_EQ(log.output(), LogLines{});
        EXPECT_EQ(dialog.calls, withTest({load, find, "free"}));
    }
}

TEST_F(DialogLoop, EndsAtOnceWhenTheCardDoesNotTellTheAttempts) {
    dialog.replies = {{"123456"}};
    expectVerify("06 313233343536", "6300");
    EXPECT_EQ(authenticate(), status::wrongPin);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(log.file(), fileLines({refusedPinExit}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(DialogLoop, EndsWhenTheCardSaysBlockedThoughItHasToldAttempts) {
    for (const char* answer : {"63C0", "6984"}) {
        attempts = untouched;
        dialog.replies = {{"123456"}};
        expectVerify("06 313233343536", "63C1");
        expectQuery(answer);
        EXPECT_EQ(authenticate(), status::wrongPin);  // by the PIN's own answer
        EXPECT_EQ(attempts, untouched);
        EXPECT_EQ(log.file(), fileLines({refusedPinExit}));
    }
}

TEST_F(DialogLoop, GoesOnWhenTheQuestionForABlockedPinFails) {
    dialog.replies = {{"123456"}, {"", 1}};
    expectVerify("06 313233343536", "63C1");
    expectQuery("6D00");
    EXPECT_EQ(authenticate(), status::wrongPin);
    EXPECT_EQ(attempts, 1u);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "Error: Failed to verify PIN. Exception."},
                                      {"ERROR", "VerifyPin failed with an unknown exception."},
                                      {"DEBUG", "CMR_80: PIN attempts remaining: 1."}}));
}

TEST_F(DialogLoop, AsksForABlockedPinOfItsOwnPinId) {
    dialog.replies = {{"123456"}, {"", 1}};
    card.expect(selectApplication, "9000");
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8195 03 7F4180 00", pinProperties(6, 8));
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 20 00 95 06 313233343536", "63C2");
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 20 00 95", "63C2");
    EXPECT_EQ(authenticate(4), status::wrongPin);
    EXPECT_EQ(attempts, 2u);
}

TEST_F(DialogLoop, StaysUpAsLongAsTheCardAllows) {
    for (int i = 0; i < 20; ++i) {
        dialog.replies.push_back({"123456"});
        expectVerify("06 313233343536", "63CF");
        expectQuery("63CF");
    }
    dialog.replies.push_back({"123456"});
    expectVerify("06 313233343536", "9000");
    EXPECT_EQ(authenticate(), 0u);
    EXPECT_EQ(dialog.prompts.size(), 21u);
    EXPECT_EQ(attempts, 15u);
}

TEST_F(DialogLoop, AnExceptionDuringVerificationAbortsAndLeavesTheLibraryLoaded) {
    dialog.replies = {{"123456"}};
    expectVerify("06 313233343536", "6D00");
    EXPECT_EQ(authenticate(), status::unexpected);
    EXPECT_EQ(attempts, untouched);
    EXPECT_EQ(dialog.calls, withTest({load, find}));
    EXPECT_EQ(log.file(), fileLines({authenticationLine("Failed to verify PIN. Aborting...")}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "Error: Failed to verify PIN. Exception."}}));
}

TEST_F(DialogLoop, AReaderRemovedDuringVerifyAborts) {
    dialog.replies = {{"123456"}};
    expectLimits();
    card.expect(selectRootCommand, "9000");
    card.expectFailure("00 20 00 11 06 313233343536", SCARD_W_REMOVED_CARD);
    EXPECT_EQ(authenticate(), status::unexpected);
    EXPECT_EQ(dialog.calls, withTest({load, find}));
    EXPECT_EQ(log.file(),
              fileLines({{"Transmit",
                          "ERROR: Failed to transmit an apdu. Tried reconnecting: false. Error: "
                          "0x-7fefff97"},
                         authenticationLine("Failed to verify PIN. Aborting...")}));
}

TEST_F(DialogLoop, EndsAsUnexpectedWhenTheLibraryNoLongerLoads) {
    dialog.loadsUntilFailure = 1;
    EXPECT_EQ(authenticate(), status::unexpected);
    EXPECT_EQ(dialog.calls, withTest({load}));
    EXPECT_EQ(log.file(), fileLines({authenticationLine("Unable to load DLL: CodeEntryLibrary"),
                                     authenticationLine("Error code: 126"),
                                     authenticationExit(status::unexpected)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(DialogLoop, EndsAsUnexpectedWithoutTheFunction) {
    dialog.functionFound = false;
    EXPECT_EQ(authenticate(), status::unexpected);
    EXPECT_EQ(dialog.calls, withTest({load, find, "free"}));
    EXPECT_EQ(log.file(), fileLines({authenticationLine("Unable to find the function in the DLL!"),
                                     authenticationExit(status::unexpected)}));
}

TEST_F(DialogLoop, EndsAsUnexpectedWithoutAPathAndTriesNoLoad) {
    // "PIN Information" leaves no empty path behind, so the loop is entered by itself.
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    const PinId pinId = PinId::user;
    const AttemptVerifyPin attempt(acquired.context, acquired.data, pinId, operations);
    EXPECT_EQ(runPinDialog(pinId, &attempts, acquired.context, operations, attempt),
              status::unexpected);
    EXPECT_EQ(dialog.calls, Calls{});
    EXPECT_EQ(log.file(), (LogLines{authenticationLine("Error: The codeEntryLibPath was not set."),
                                    authenticationLine("Unable to load DLL: CodeEntryLibrary"),
                                    authenticationLine("Error code: 126"),
                                    authenticationExit(status::unexpected)}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(DialogLoop, ReadsNoFurtherThanTheBufferWhenTheTerminatorIsMissing) {
    dialog.replies = {{"1234567890123"}, {"", 1}};
    expectLimitsByGetData(card, "11", 4, 13);
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 11 0D 31323334353637383930313233", "6700");
    EXPECT_EQ(authenticate(), status::wrongPin);
}

TEST_F(DialogLoop, TakesTwelveCharacters) {
    dialog.replies = {{"123456789012"}};
    expectVerify("0C 313233343536373839303132", "9000");
    EXPECT_EQ(authenticate(), 0u);
}

TEST_F(DialogLoop, TakesWhatStandsInTheBufferForThePinWhenNothingWasWritten) {
    dialog.replies = {{""}};
    expectVerify("0C 303030303030303030303030", "9000");
    EXPECT_EQ(authenticate(), 0u);
}

TEST_F(DialogLoop, SendsTextOutsideAsciiInItsSingleBytes) {
    dialog.replies = {{"12\xE4\xF6"}};
    expectVerify("04 3132E4F6", "9000");
    EXPECT_EQ(authenticate(), 0u);
}

TEST_F(DialogLoop, GeneratesNoSessionPinThoughItIsAskedForOne) {
    dialog.replies = {{"123456"}};
    expectVerify("06 313233343536", "9000");
    BYTE* sessionPin = nullptr;
    DWORD sessionPinSize = untouched;
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0x10000000, nullptr, 0, &sessionPin,
                                 &sessionPinSize, &attempts),
              0u);
    EXPECT_EQ(sessionPin, nullptr);
    EXPECT_EQ(sessionPinSize, untouched);
    EXPECT_EQ(log.file(), fileLines({authenticationExit(status::success)}, "268435456"));
}

TEST_F(DialogLoop, IsNotShownForASessionPinWithoutItsPointers) {
    BYTE* sessionPin = nullptr;
    DWORD size = 0;
    EXPECT_EQ(CardAuthenticateEx(&acquired.data, 1, 0x10000000, nullptr, 0, &sessionPin, nullptr,
                                 nullptr),
              status::invalidParameter);
    EXPECT_EQ(
        CardAuthenticateEx(&acquired.data, 1, 0x10000000, nullptr, 0, nullptr, &size, nullptr),
        status::invalidParameter);
    EXPECT_TRUE(dialog.prompts.empty());
}

TEST_F(DialogLoop, IsNotShownInASilentContext) {
    EXPECT_EQ(authenticate(1, 0x40), status::unsupportedFeature);
    EXPECT_TRUE(dialog.prompts.empty());
    EXPECT_EQ(dialog.calls, DialogDouble::callsOfOneTest());
    EXPECT_EQ(log.file(), fileLines({}, "64"));
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG", "CMR_68: External authentication without UI is not supported."}}));
}

TEST_F(DialogLoop, IsNotShownOnTheLogonScreen) {
    dialog.windowClass = WIDE_TEXT("LogonUI Logon Window");
    EXPECT_EQ(authenticate(), status::invalidParameter);
    EXPECT_TRUE(dialog.prompts.empty());
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG", "CMR_73: pbPinData is NULL and PIN type is not external or empty."}}));
}

}  // namespace
}  // namespace KelmoraID
