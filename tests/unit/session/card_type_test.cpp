#include <gtest/gtest.h>

#include <string>

#include "session/card_type_of.h"
#include "support/fineid_script.h"

namespace KelmoraID {
namespace {

using testing::atrOf;
using testing::bytes;

CardType typeOf(std::string_view atr) {
    ByteVector value = bytes(atr);
    CARD_DATA data{};
    data.pbAtr = value.data();
    data.cbAtr = static_cast<DWORD>(value.size());
    return cardTypeOf(&data);
}

constexpr CardType types[] = {CardType::type3, CardType::type4, CardType::type5,
                              CardType::type6, CardType::type7, CardType::type8};

TEST(CardTypeOf, RecognisesEveryAtrOfTheTable) {
    for (const CardType type : types) EXPECT_EQ(typeOf(atrOf(type)), type) << atrOf(type);
}

TEST(CardTypeOf, RecognisesAnAtrWithOneFurtherByteOfAnyValue) {
    for (const CardType type : types) {
        for (const char* last : {"00", "7f", "FF"}) {
            EXPECT_EQ(typeOf(std::string(atrOf(type)) + last), type) << atrOf(type) << last;
        }
    }
}

TEST(CardTypeOf, DoesNotRecogniseAnAtrThatIsOneByteShorter) {
    for (const CardType type : types) {
        const std::string atr(atrOf(type));
        EXPECT_EQ(typeOf(atr.substr(0, atr.size() - 2)), CardType::unknown) << atr;
    }
}

TEST(CardTypeOf, DoesNotRecogniseAnAtrWithTwoFurtherBytes) {
    EXPECT_EQ(typeOf(std::string(atrOf(CardType::type3)) + "0000"), CardType::unknown);
}

TEST(CardTypeOf, TellsARecordWithoutAtrFromAnUnknownOne) {
    EXPECT_EQ(typeOf(""), CardType::noAtr);
    EXPECT_EQ(typeOf("3B"), CardType::unknown);
}

TEST(CardTypeOf, DoesNotReadAnAtrThatIsLongerThanAnyCanBe) {
    BYTE one = 0x3B;
    CARD_DATA data{};
    data.pbAtr = &one;
    data.cbAtr = 0xFFFFFFFE;
    EXPECT_EQ(cardTypeOf(&data), CardType::unknown);
}

}  // namespace
}  // namespace KelmoraID
