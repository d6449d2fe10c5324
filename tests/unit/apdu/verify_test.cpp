#include "apdu/verify.h"

#include <gtest/gtest.h>

#include <string>

#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;

const ByteVector pin = bytes("31 32 33 34 35 36 37 38");

Verify answered(std::optional<ByteVector> data, std::string_view reply) {
    Verify verify(0x11, CardType::type3, std::move(data));
    EXPECT_FALSE(verify.handleResponse(ApduResponse(bytes(reply))).has_value());
    return verify;
}

TEST(Verify, HasItsName) {
    EXPECT_EQ(Verify(0x11, CardType::type3, std::nullopt).getName(), "VERIFY");
}

TEST(Verify, WithoutDataEncodesToFourBytes) {
    EXPECT_EQ(Verify(0x11, CardType::type3, std::nullopt).buildRequest().bytes,
              bytes("00 20 00 11"));
}

TEST(Verify, WithDataHasNoLe) {
    EXPECT_EQ(Verify(0x11, CardType::type3, bytes("31 32 33")).buildRequest().bytes,
              bytes("00 20 00 11 03 31 32 33"));
    EXPECT_EQ(Verify(0x11, CardType::type3, ByteVector{}).buildRequest().bytes,
              bytes("00 20 00 11 00"));
}

TEST(Verify, Adds80ToTheReferenceOnCardType6AndOnlyThere) {
    for (std::uint32_t type = 1; type <= 8; ++type) {
        const BYTE P2 = Verify(0x02, static_cast<CardType>(type), std::nullopt).buildRequest().P2;
        EXPECT_EQ(P2, type == 6 ? 0x82 : 0x02) << type;
    }
}

TEST(Verify, WipesAndEmptiesThePinAtTheFirstResponse) {
    for (const char* reply : {"90 00", "63 C2", "69 84", "67 00", "6F 00"}) {
        Verify verify(0x11, CardType::type3, pin);
        // The request that was sent keeps its own copy.
        const ApduRequest request = verify.buildRequest();
        const BYTE* storage = verify.data()->data();
        verify.handleResponse(ApduResponse(bytes(reply)));
        EXPECT_EQ(ByteVector(storage, storage + pin.size()), ByteVector(pin.size(), 0)) << reply;
        ASSERT_TRUE(verify.data().has_value()) << reply;
        EXPECT_TRUE(verify.data()->empty()) << reply;
        EXPECT_EQ(request.bytes, bytes("00 20 00 11 08 31 32 33 34 35 36 37 38")) << reply;
    }
}

TEST(Verify, HasNothingSetBeforeAResponse) {
    const Verify verify(0x11, CardType::type3, pin);
    EXPECT_FALSE(verify.verified());
    EXPECT_FALSE(verify.blocked());
    EXPECT_EQ(verify.attemptsRemaining(), -1);
    EXPECT_THROW(verify.success(), std::bad_optional_access);
    EXPECT_EQ(verify.data(), pin);
}

struct Answer {
    const char* reply;
    bool withPin;
    bool success;
    bool verified;
    bool blocked;
    int attemptsRemaining;
};

// success means that the card gave an answer to a PIN, not that the PIN was right. A 63C0 means
// blocked to a query alone, and a 6983 never, unlike a 6984.
constexpr Answer answers[] = {
    {"90 00", true, true, true, false, -1},   {"90 00", false, true, true, false, -1},
    {"63 00", true, true, false, false, -1},  {"63 00", false, true, false, false, -1},
    {"69 83", true, true, false, false, 0},   {"69 83", false, true, false, false, 0},
    {"69 84", true, true, false, true, 0},    {"69 84", false, true, false, true, 0},
    {"63 C2", true, true, false, false, 2},   {"63 C2", false, true, false, false, 2},
    {"63 CF", true, true, false, false, 15},  {"63 CF", false, true, false, false, 15},
    {"63 C0", true, true, false, false, 0},   {"63 C0", false, true, false, true, 0},
    {"67 00", true, false, false, false, -1}, {"67 00", false, false, false, false, -1},
    {"69 82", true, false, false, false, -1}, {"63 D0", true, false, false, false, -1},
    {"63 01", true, false, false, false, -1}, {"90 01", true, false, false, false, -1},
};

TEST(Verify, ReadsTheCardsAnswerByTheStatusWord) {
    for (const Answer& answer : answers) {
        SCOPED_TRACE(std::string(answer.reply) + (answer.withPin ? " to a PIN" : " to a query"));
        const Verify verify =
            answered(answer.withPin ? std::optional(pin) : std::nullopt, answer.reply);
        EXPECT_EQ(verify.success(), answer.success);
        EXPECT_EQ(verify.verified(), answer.verified);
        EXPECT_EQ(verify.blocked(), answer.blocked);
        EXPECT_EQ(verify.attemptsRemaining(), answer.attemptsRemaining);
    }
}

}  // namespace
}  // namespace KelmoraID::FINEID
