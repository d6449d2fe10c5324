#include "doctor/nearest_atr.h"

#include <gtest/gtest.h>

#include "card_types.h"

namespace cardhost::doctor {
namespace {

std::string nearest(const char* atr) {
    return nearestAtrText(bytesOfHex(atr));
}

TEST(NearestAtr, IsNamedForEachWayToDiffer) {
    EXPECT_EQ(nearest("3bdd96008031fe450031b8640429ecc1739401808258"),
              "one bit away from type 3 (byte 22 is 58, there 48)");
    EXPECT_EQ(nearest("3b7f9600008031b865b085050011122460829f00"),
              "one byte away from type 4 (byte 19 is 9F, there 90)");
    EXPECT_EQ(nearest("3b7f9600008031b865b085050011122460"), "3 bytes away from type 4");
    EXPECT_EQ(nearest("3b7f9600008031b865b0850500111224608290"), "one byte shorter than type 4");
    EXPECT_EQ(nearest("3b7f9600008031b865b08505001112246082900000"), "one byte longer than type 4");
    EXPECT_EQ(nearest("3b7f9600008031b865b0850500111224608290000000"), "2 bytes away from type 4");
}

TEST(NearestAtr, OfTwoTypesIsTheNearer) {
    // Types 3 and 8 differ in one bit of the last two bytes.
    EXPECT_EQ(nearest("3bdd96008031fe450031b8640429ecc173940180834b"),
              "one bit away from type 8 (byte 22 is 4B, there 49)");
}

TEST(NearestAtr, IsNoneForAnotherCard) {
    EXPECT_EQ(nearest(""), "");
    EXPECT_EQ(nearest("3b9f9581"), "");
    EXPECT_EQ(nearest("3b7f96000080318065b0850300ef120fff829f0f"), "");
    EXPECT_EQ(nearestAtrText(Bytes(100'000, 0x3B)), "");
}

TEST(NearestAtr, FindsEveryFlippedBit) {
    for (const CardGeneration& generation : generations()) {
        const ByteView known = generation.atr;
        for (std::size_t bit = 0; bit < 8 * known.size(); ++bit) {
            Bytes atr(known.begin(), known.end());
            atr[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
            EXPECT_TRUE(nearestAtrText(atr).starts_with("one bit away from type ")) << bit;
        }
    }
}

}  // namespace
}  // namespace cardhost::doctor
