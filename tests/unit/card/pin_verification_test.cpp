#include <optional>
#include <system_error>

#include "pin/pin_fixture.h"
#include "profiles/card_profiles.h"

namespace KelmoraID {
namespace {

using namespace testing;

constexpr const char* pinHex = "313233343536";
constexpr const char* verifyWithPin = "00 20 00 11 06 313233343536";
constexpr const char* verifyQuery = "00 20 00 11";

class PinVerification : public ::testing::Test {
protected:
    PlatformCallsGuard guard;
    ScriptedCard card;
    LogCapture log;
    CardOperations operations{ScriptedCard::handle, CardType::type3};

    // VERIFY of the user's PIN, or the query when there is none, with that answer.
    void expectVerify(bool withPin, const std::string& answer) {
        card.expect(selectRootCommand, "9000");
        card.expect(withPin ? verifyWithPin : verifyQuery, answer);
    }
    std::optional<PinVerifyResult> verify(bool withPin) {
        return operations.VerifyPin(
            PinId::user, withPin ? std::optional<ByteVector>(bytes(pinHex)) : std::nullopt);
    }
};

struct AnswerCase {
    const char* answer;
    std::int32_t attempts;
    PinVerifyResult::Status toPin;
    PinVerifyResult::Status toQuery;
};

constexpr AnswerCase answerCases[] = {
    {"9000", -1, PinVerifyResult::verified, PinVerifyResult::verified},
    {"6300", -1, PinVerifyResult::wrong, PinVerifyResult::wrong},
    {"63C2", 2, PinVerifyResult::wrong, PinVerifyResult::wrong},
    {"63CF", 15, PinVerifyResult::wrong, PinVerifyResult::wrong},
    // As the answer to a real PIN it is one more wrong PIN.
    {"63C0", 0, PinVerifyResult::wrong, PinVerifyResult::blocked},
    // Unlike 6984 it does not say blocked.
    {"6983", 0, PinVerifyResult::wrong, PinVerifyResult::wrong},
    {"6984", 0, PinVerifyResult::blocked, PinVerifyResult::blocked},
};

TEST_F(PinVerification, ReadsTheAnswerToARealPin) {
    for (const AnswerCase& answerCase : answerCases) {
        SCOPED_TRACE(answerCase.answer);
        expectVerify(true, answerCase.answer);
        const auto result = verify(true);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, answerCase.toPin);
        EXPECT_EQ(result->attemptsRemaining, answerCase.attempts);
    }
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PinVerification, ReadsTheAnswerToAQuery) {
    for (const AnswerCase& answerCase : answerCases) {
        SCOPED_TRACE(answerCase.answer);
        expectVerify(false, answerCase.answer);
        const auto result = verify(false);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, answerCase.toQuery);
        EXPECT_EQ(result->attemptsRemaining, answerCase.attempts);
    }
}

TEST_F(PinVerification, HasNoValueWhenTheCardRefusesTheForm) {
    expectVerify(true, "6700");
    EXPECT_FALSE(verify(true));
    expectVerify(false, "6700");
    EXPECT_FALSE(verify(false));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(PinVerification, AnUnknownStatusWordThrowsAPointer) {
    for (const char* answer : {"6982", "6A88", "6D00", "6283", "6701", "61FF", "9001"}) {
        SCOPED_TRACE(answer);
        expectVerify(true, answer);
        EXPECT_EQ(textOfThrownPointer([&] { verify(true); }), "Failed to verify PIN.");
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "Error: Failed to verify PIN. Exception."}}));
    }
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PinVerification, ATransportFailurePassesUnchanged) {
    card.expect(selectRootCommand, "9000");
    card.expectFailure(verifyWithPin, SCARD_W_REMOVED_CARD);
    try {
        verify(true);
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), SCARD_W_REMOVED_CARD);
    }
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(PinVerification, ARefusedSelectionThrowsItsPointerAndSendsNoPin) {
    card.expect(selectRootCommand, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { verify(true); }), "Failed to select root.");
}

TEST_F(PinVerification, APinIdOutside1To4IsAnOptionalAccessFailureWithNothingSent) {
    EXPECT_THROW(operations.VerifyPin(static_cast<PinId>(0), bytes(pinHex)),
                 std::bad_optional_access);
    EXPECT_THROW(operations.VerifyPin(static_cast<PinId>(5), std::nullopt),
                 std::bad_optional_access);
    EXPECT_TRUE(card.exchanges().empty());
}

TEST_F(PinVerification, OnCardType6TheUserAndTheSignaturePinDifferByDirectoryAlone) {
    CardOperations onType6(ScriptedCard::handle, CardType::type6);
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 20 00 81 06 313233343536", "9000");
    EXPECT_TRUE(onType6.VerifyPin(PinId::signature, bytes(pinHex)));
    card.expect(selectRootCommand, "9000").expect("00 20 00 81 06 313233343536", "9000");
    EXPECT_TRUE(onType6.VerifyPin(PinId::user, bytes(pinHex)));
}

TEST_F(PinVerification, SendsTheReferenceOfTheGenerationWithEveryPinId) {
    struct Row {
        CardType cardType;
        const char* p2[4];
    };
    const Row rows[] = {
        {CardType::type3, {"11", "12", "12", "95"}}, {CardType::type4, {"11", "83", "83", "82"}},
        {CardType::type5, {"11", "83", "83", "82"}}, {CardType::type6, {"81", "82", "82", "81"}},
        {CardType::type7, {"11", "83", "83", "82"}}, {CardType::type8, {"03", "12", "12", "04"}},
    };
    for (const Row& row : rows) {
        CardOperations onCard(ScriptedCard::handle, row.cardType);
        for (std::uint32_t pinId = 1; pinId <= 4; ++pinId) {
            card.expect(selectRootCommand, "9000");
            if (pinId == 4) {
                card.expect(profileOf(row.cardType).hasSecondSigningKey ? selectEsignByIdentifier
                                                                        : selectEsignAsChild,
                            "9000");
            }
            card.expect(std::string("00 20 00") + row.p2[pinId - 1], "63C3");
            EXPECT_TRUE(onCard.VerifyPin(static_cast<PinId>(pinId), std::nullopt));
        }
    }
}

TEST_F(PinVerification, IsPinVerifiedIsTrueForAnOpenPinAlone) {
    for (const AnswerCase& answerCase : answerCases) {
        SCOPED_TRACE(answerCase.answer);
        expectVerify(false, answerCase.answer);
        EXPECT_EQ(operations.isPinVerified(PinId::user), std::string(answerCase.answer) == "9000");
    }
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(PinVerification, IsPinBlockedIsTrueFor63C0And6984Alone) {
    for (const AnswerCase& answerCase : answerCases) {
        SCOPED_TRACE(answerCase.answer);
        const std::string answer = answerCase.answer;
        expectVerify(false, answer);
        EXPECT_EQ(operations.isPinBlocked(PinId::user), answer == "63C0" || answer == "6984");
    }
    EXPECT_EQ(log.output(), LogLines{});
}

using Question = bool (CardOperations::*)(PinId);
constexpr Question questions[] = {&CardOperations::isPinVerified, &CardOperations::isPinBlocked};

TEST_F(PinVerification, AQuestionAnsweredBy6700IsFalseByTheOptionalAccessFailure) {
    const std::string text = std::bad_optional_access().what();
    for (const Question question : questions) {
        expectVerify(false, "6700");
        EXPECT_FALSE((operations.*question)(PinId::user));
        EXPECT_EQ(log.output(), (LogLines{{"ERROR", "VerifyPin failed. Exception: " + text}}));
    }
}

TEST_F(PinVerification, AQuestionForAPinIdOutside1To4IsFalseByTheOptionalAccessFailure) {
    const std::string text = std::bad_optional_access().what();
    for (const Question question : questions) {
        EXPECT_FALSE((operations.*question)(static_cast<PinId>(5)));
        EXPECT_EQ(log.output(), (LogLines{{"ERROR", "VerifyPin failed. Exception: " + text}}));
    }
}

TEST_F(PinVerification, AQuestionWithAnUnknownStatusWordEndsInTheUnknownException) {
    for (const Question question : questions) {
        expectVerify(false, "6D00");
        EXPECT_FALSE((operations.*question)(PinId::user));
        EXPECT_EQ(log.output(),
                  (LogLines{{"DEBUG", "Error: Failed to verify PIN. Exception."},
                            {"ERROR", "VerifyPin failed with an unknown exception."}}));
    }
}

TEST_F(PinVerification, AQuestionWithARefusedSelectionEndsInTheUnknownException) {
    for (const Question question : questions) {
        card.expect(selectRootCommand, "6A82");
        EXPECT_FALSE((operations.*question)(PinId::user));
        EXPECT_EQ(log.output(),
                  (LogLines{{"ERROR", "VerifyPin failed with an unknown exception."}}));
    }
}

TEST_F(PinVerification, AQuestionOnAnAbsentCardIsFalseWithTheTransportsText) {
    for (const Question question : questions) {
        card.expect(selectRootCommand, "9000");
        card.expectFailure(verifyQuery, SCARD_W_REMOVED_CARD);
        EXPECT_FALSE((operations.*question)(PinId::user));
        const LogLines lines = log.output();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].scope, "ERROR");
        EXPECT_TRUE(
            lines[0].message.starts_with("VerifyPin failed. Exception: Failed to transmit data."))
            << lines[0].message;
    }
}

TEST_F(PinVerification, KeepsNothing) {
    expectVerify(true, "9000");
    EXPECT_TRUE(verify(true));
    expectVerify(false, "63C3");
    EXPECT_FALSE(operations.isPinVerified(PinId::user));
}

}  // namespace
}  // namespace KelmoraID
