#include <memory>
#include <stdexcept>
#include <system_error>

#include "card/card_operations.h"
#include "keys/keys_fixture.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::counting;
using testing::hexOf;
using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;

constexpr const char* mseRsa81 = "00 22 41 B8 06 80 01 1A 84 01 81";
constexpr const char* mseEcdh91 = "00 22 41 B8 09 80 04 FF 30 04 00 84 01 91";
constexpr const char* shortLine = "Decipher failed. Message length shorther than expected.";
constexpr const char* emptyLine = "Decipher failed. No decrypted data returned by card.";

std::string firstBlock(const ByteVector& data) {
    return "10 2A 80 86 FF 81" + hexOf({data.begin(), data.begin() + 254});
}
std::string lastBlock(const ByteVector& data) {
    const ByteVector rest(data.begin() + 254, data.end());
    return "00 2A 80 86" + hexOf({static_cast<BYTE>(rest.size())}) + hexOf(rest) + "FF";
}

ByteVector rsa(const ByteVector& data, std::size_t length = 0, DWORD keySpec = 1) {
    return CardOperations(ScriptedCard::handle, CardType::type3)
        .decipherRsa(data, static_cast<std::uint16_t>(length == 0 ? data.size() : length), keySpec);
}
ByteVector ecdh(const ByteVector& data, bool hasSecondSignCert = false,
                CardType cardType = CardType::type8) {
    return CardOperations(ScriptedCard::handle, cardType).decipherEcdh(data, hasSecondSignCert);
}

// What was thrown, in words: "object" or "pointer", the family, and the text.
template <typename Call>
std::string thrownBy(Call call) {
    try {
        call();
    } catch (std::runtime_error* error) {
        const std::unique_ptr<std::runtime_error> owned(error);
        return std::string("pointer runtime_error ") + error->what();
    } catch (const std::logic_error& error) {
        return std::string("object logic_error ") + error.what();
    } catch (const std::system_error& error) {
        return "object system_error " + std::to_string(error.code().value());
    } catch (const std::runtime_error& error) {
        return std::string("object runtime_error ") + error.what();
    }
    return "nothing";
}

constexpr const char* environmentFailure =
    "pointer runtime_error Failed to Set Security Environment for Decipher.";
constexpr const char* pinFailure = "object logic_error Unauthenticated. Unlock PIN first.";
constexpr const char* decipherFailure = "object runtime_error Failed to Decipher data.";

TEST(DecipherRsa, SendsA256ByteBlockIn255And2Bytes) {
    LogCapture log;
    ScriptedCard card;
    const ByteVector data = counting(256);
    card.expect(mseRsa81, "9000")
        .expect(firstBlock(data), "9000")
        .expect("00 2A 80 86 02 FE FF FF", "01 02 03 9000");
    EXPECT_EQ(rsa(data), bytes("01 02 03"));
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(DecipherRsa, NamesTheSecondKeyForEveryKeySpecificationBut1) {
    for (const DWORD keySpec : {2u, 0u, 257u, 0xFFFFFFFFu}) {
        ScriptedCard card;
        card.expect("00 22 41 B8 06 80 01 1A 84 01 82", "6A88");
        EXPECT_EQ(thrownBy([&] { rsa(counting(256), 0, keySpec); }), environmentFailure);
    }
}

TEST(DecipherRsa, SendsOnlyTheEnvironmentForA128ByteBlock) {
    for (const std::size_t length : {1u, 128u, 255u}) {
        LogCapture log;
        ScriptedCard card;
        card.expect(mseRsa81, "9000");
        EXPECT_EQ(rsa(counting(length)), ByteVector{});
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", shortLine}}));
    }
}

TEST(DecipherRsa, BelievesNoLengthThatTheDataDoesNotHave) {
    for (const std::size_t size : {0u, 10u, 254u, 255u}) {
        LogCapture log;
        ScriptedCard card;
        card.expect(mseRsa81, "9000");
        EXPECT_EQ(rsa(counting(size), 256), ByteVector{});
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", shortLine}}));
    }
}

TEST(DecipherRsa, ThrowsAPointerWhenTheEnvironmentIsRefused) {
    for (const char* refusal : {"6A88", "6982", "6D00", "6282"}) {
        ScriptedCard card;
        card.expect(mseRsa81, refusal);
        EXPECT_EQ(thrownBy([] { rsa(counting(256)); }), environmentFailure);
    }
}

TEST(DecipherRsa, SendsNoSecondBlockWhenThePinIsClosed) {
    ScriptedCard card;
    const ByteVector data = counting(256);
    card.expect(mseRsa81, "9000").expect(firstBlock(data), "6982");
    EXPECT_EQ(thrownBy([&] { rsa(data); }), pinFailure);
}

TEST(DecipherRsa, TellsAClosedPinFromAllElseOnBothBlocks) {
    const ByteVector data = counting(256);
    for (const char* refusal : {"6A80", "6883", "6700", "6983"}) {
        ScriptedCard card;
        card.expect(mseRsa81, "9000").expect(firstBlock(data), refusal);
        EXPECT_EQ(thrownBy([&] { rsa(data); }), decipherFailure);
    }
    {
        ScriptedCard card;
        card.expect(mseRsa81, "9000").expect(firstBlock(data), "9000");
        card.expect(lastBlock(data), "6A80");
        EXPECT_EQ(thrownBy([&] { rsa(data); }), decipherFailure);
    }
    ScriptedCard card;
    card.expect(mseRsa81, "9000").expect(firstBlock(data), "9000");
    card.expect(lastBlock(data), "6982");
    EXPECT_EQ(thrownBy([&] { rsa(data); }), pinFailure);
}

TEST(DecipherRsa, TakesTheMessageByGetResponseAndWithTheWarning6282) {
    const ByteVector data = counting(256);
    ScriptedCard card;
    card.expect(mseRsa81, "9000").expect(firstBlock(data), "9000");
    card.expect(lastBlock(data), "6103").expect("00 C0 00 00 03", "0A 0B 0C 6282");
    EXPECT_EQ(rsa(data), bytes("0A 0B 0C"));
}

TEST(DecipherRsa, GivesNothingWithTwoLinesWhenTheCardGivesNothing) {
    LogCapture log;
    const ByteVector data = counting(256);
    ScriptedCard card;
    card.expect(mseRsa81, "9000").expect(firstBlock(data), "9000");
    card.expect(lastBlock(data), "9000");
    EXPECT_EQ(rsa(data), ByteVector{});
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", emptyLine}, {"DEBUG", shortLine}}));
}

TEST(DecipherRsa, SendsALastBlockOf255BytesAndNoLongerOne) {
    {
        const ByteVector data = counting(509);
        ScriptedCard card;
        card.expect(mseRsa81, "9000").expect(firstBlock(data), "9000");
        card.expect(lastBlock(data), "01 9000");
        EXPECT_EQ(rsa(data), bytes("01"));
    }
    const ByteVector data = counting(510);
    ScriptedCard card;
    card.expect(mseRsa81, "9000").expect(firstBlock(data), "9000");
    EXPECT_EQ(thrownBy([&] { rsa(data); }), decipherFailure);
}

TEST(DecipherRsa, LetsAFailedTransmissionThrough) {
    LogCapture log;
    ScriptedCard card;
    card.expectFailure(mseRsa81, SCARD_W_REMOVED_CARD);
    EXPECT_EQ(thrownBy([] { rsa(counting(256)); }), "object system_error -2146434967");
}

TEST(DecipherEcdh, SendsTheDataAsOneBlockWithoutIndicator) {
    LogCapture log;
    ScriptedCard card;
    card.expect(mseEcdh91, "9000").expect("00 2A 80 86 03 04 AA BB 00", "01 02 9000");
    EXPECT_EQ(ecdh(bytes("04 AA BB")), bytes("01 02"));
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(DecipherEcdh, NamesKey91OnCardType8AndKey01ByTheFlagAlone) {
    for (const CardType cardType : {CardType::type8, CardType::type3, CardType::type5}) {
        ScriptedCard card;
        card.expect(mseEcdh91, "9000").expect("00 2A 80 86 01 04 00", "55 9000");
        EXPECT_EQ(ecdh(bytes("04"), false, cardType), bytes("55"));
    }
    ScriptedCard card;
    card.expect("00 22 41 B8 09 80 04 FF 30 04 00 84 01 01", "9000")
        .expect("00 2A 80 86 01 04 00", "55 9000");
    EXPECT_EQ(ecdh(bytes("04"), true, CardType::type8), bytes("55"));
}

TEST(DecipherEcdh, FailsAsTheRsaScriptDoes) {
    {
        ScriptedCard card;
        card.expect(mseEcdh91, "6A88");
        EXPECT_EQ(thrownBy([] { ecdh(bytes("04")); }), environmentFailure);
    }
    {
        ScriptedCard card;
        card.expect(mseEcdh91, "9000").expect("00 2A 80 86 01 04 00", "6982");
        EXPECT_EQ(thrownBy([] { ecdh(bytes("04")); }), pinFailure);
    }
    ScriptedCard card;
    card.expect(mseEcdh91, "9000").expect("00 2A 80 86 01 04 00", "6A80");
    EXPECT_EQ(thrownBy([] { ecdh(bytes("04")); }), decipherFailure);
}

TEST(DecipherEcdh, GivesNothingWithOneLineWhenTheCardGivesNothing) {
    LogCapture log;
    ScriptedCard card;
    card.expect(mseEcdh91, "9000").expect("00 2A 80 86 01 04 00", "9000");
    EXPECT_EQ(ecdh(bytes("04")), ByteVector{});
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", emptyLine}}));
}

TEST(DecipherEcdh, SendsNoBlockThatOneCommandCannotCarry) {
    {
        ScriptedCard card;
        card.expect(mseEcdh91, "9000")
            .expect("00 2A 80 86 FF" + hexOf(counting(255)) + "00", "55 9000");
        EXPECT_EQ(ecdh(counting(255)), bytes("55"));
    }
    ScriptedCard card;
    card.expect(mseEcdh91, "9000");
    EXPECT_EQ(thrownBy([] { ecdh(counting(256)); }), decipherFailure);
}

}  // namespace
}  // namespace KelmoraID
