#include "frame/card_reading.h"

#include <gtest/gtest.h>

#include <iterator>

#include "session/card_context.h"
#include "support/fineid_script.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/test_certificates.h"

namespace KelmoraID {
namespace {

using namespace testing;

class CardIdentity : public ::testing::Test {
protected:
    // Acquires a card with that serial number and gives its identifier.
    ByteVector identifierOf(const ByteVector& serialNumber) {
        const FineidContent content{
            .serialNumber = serialNumber,
            .certificates = {p256Certificate(), p256Certificate(), p256Certificate()}};
        ScriptedCard card;
        expectAcquisition(card, content, 3);
        EXPECT_EQ(readCard(&record.data), 0);
        const CardContext& context = contextOf(&record.data);
        return {std::begin(context.cardIdentifier), std::end(context.cardIdentifier)};
    }
    LogCapture log;
    PlatformCallsGuard hooks;
    PlatformRecord record{CardType::type7};
};

TEST_F(CardIdentity, IsASerialNumberOf16BytesAsItStands) {
    const ByteVector serial = bytes("000102030405060708090A0B0C0D0E0F");
    EXPECT_EQ(identifierOf(serial), serial);
}

TEST_F(CardIdentity, IsTheHashOfASerialNumberOf17Bytes) {
    // SHA-256 of the 17 bytes 00 to 10, its first half.
    EXPECT_EQ(hexOf(identifierOf(bytes("000102030405060708090A0B0C0D0E0F10"))),
              "3E5718FEA51A8F3F5BACA61C77AFAB47");
}

TEST_F(CardIdentity, IsAShortSerialNumberPaddedWithZeros) {
    EXPECT_EQ(identifierOf(bytes("01020304050607080910")),
              bytes("01020304050607080910000000000000"));
}

TEST_F(CardIdentity, IsZeroWhenTheHashFails) {
    platformCalls().failCall("CryptAcquireContextW", 1);
    EXPECT_EQ(identifierOf(bytes("000102030405060708090A0B0C0D0E0F10")), ByteVector(16, 0));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CryptAcquireContext failed:  1234"}}));
}

}  // namespace
}  // namespace KelmoraID
