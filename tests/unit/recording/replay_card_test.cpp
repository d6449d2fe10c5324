// The card that replays a conversation, seen through the seam.
#include <gmock/gmock.h>

#include "recording/parser.h"
#include "recording/replay_card.h"

namespace recording {
namespace {

constexpr std::uint32_t removedCard = 0x80100069;

constexpr const char* text = R"(conversation 1
ATR 3B 01
protocol T=0
CardAcquireContext
  > 00 A4 04 00
  < 6F 00 90 00
  > 00 B0 00 00 7F
  < failed 0x80100068
  = 0x00000000
CardAuthenticateEx with PIN 1
  > 00 20 00 11 02 ** **
  < 90 00
CardSignData with container 0
  > 00 2A 9E 9A 00
  < 01 02 03 90 00
CardAuthenticateEx with PIN 1
  > 00 20 00 11 02 ** **
  < 63 C4
end
)";

class Replay : public ::testing::Test {
protected:
    struct Answer {
        std::uint32_t status;
        Bytes bytes;
        bool operator==(const Answer&) const = default;
    };

    Answer send(const Bytes& command, std::uint32_t protocol = 1) {
        Bytes reply(300);
        auto length = static_cast<std::uint32_t>(reply.size());
        const auto status = static_cast<std::uint32_t>(card.seam()->transmit(
            card.seam()->self, card.cardHandle(), protocol, command.data(),
            static_cast<std::uint32_t>(command.size()), reply.data(), &length));
        reply.resize(length);
        return {status, reply};
    }

    const Conversation conversation = parse(text);
    ReplayCard card{conversation};
    const Bytes select{0x00, 0xA4, 0x04, 0x00};
    const Bytes read{0x00, 0xB0, 0x00, 0x00, 0x7F};
    const Bytes verify{0x00, 0x20, 0x00, 0x11, 0x02, 0x38, 0x39};
    const Bytes sign{0x00, 0x2A, 0x9E, 0x9A, 0x00};
};

TEST_F(Replay, SaysWhatWasSaidInOrder) {
    EXPECT_EQ(send(select), (Answer{0, {0x6F, 0x00, 0x90, 0x00}}));
    EXPECT_EQ(send(read), (Answer{0x80100068, {}}));
    EXPECT_EQ(send(verify), (Answer{0, {0x90, 0x00}}));
    EXPECT_EQ(send(sign), (Answer{0, {0x01, 0x02, 0x03, 0x90, 0x00}}));
    EXPECT_FALSE(card.isAtEnd());
    EXPECT_EQ(send(verify), (Answer{0, {0x63, 0xC4}}));
    EXPECT_TRUE(card.isAtEnd());
    EXPECT_EQ(card.mismatch(), "");
    EXPECT_EQ(send(select).status, removedCard);
    EXPECT_EQ(card.mismatch(),
              "the recording has not what was asked: 00 A4 04 00 (SELECT by application name); it "
              "ends there");
}

TEST_F(Replay, SaysWhatWasAskedAndWhatStoodNext) {
    EXPECT_EQ(send(read).status, removedCard);
    EXPECT_EQ(
        card.mismatch(),
        "the recording has not what was asked: 00 B0 00 00 7F (READ BINARY at 0); next in it, "
        "on line 5, is 00 A4 04 00 (SELECT by application name)");
    // From then on nothing fits any more.
    EXPECT_EQ(send(select).status, removedCard);
    EXPECT_THAT(card.mismatch(), ::testing::HasSubstr("line 5"));
}

TEST_F(Replay, TellsNoPin) {
    send(verify);
    EXPECT_THAT(card.mismatch(), ::testing::HasSubstr("00 20 00 11 02 ** ** (VERIFY)"));
}

TEST_F(Replay, GoesOnAtTheCallThatIsAnnounced) {
    card.beginCall("CardAcquireContext");
    EXPECT_EQ(send(select).status, 0u);
    EXPECT_EQ(send(read).status, 0x80100068u);
    card.beginCall("CardSignData with container 0");
    EXPECT_EQ(send(sign).status, 0u);
    card.beginCall("CardAuthenticateEx with PIN 1");
    EXPECT_EQ(send(verify).bytes, (Bytes{0x63, 0xC4}));
    EXPECT_EQ(card.mismatch(), "");
}

TEST_F(Replay, ACallAsksNoMoreThanItDid) {
    card.beginCall("CardAcquireContext");
    send(select);
    send(read);
    send(verify);
    EXPECT_EQ(card.mismatch(),
              "the recording has not what was asked: 00 20 00 11 02 ** ** (VERIFY); in it "
              "CardAcquireContext ends there, ahead of line 11");
}

TEST_F(Replay, ACallThatIsNotInItAsksNothing) {
    card.beginCall("CardReadFile cardid");
    EXPECT_EQ(card.mismatch(), "");
    send(select);
    EXPECT_EQ(card.mismatch(),
              "the recording has not what was asked: 00 A4 04 00 (SELECT by application name); it "
              "has no further call of CardReadFile cardid");
}

TEST_F(Replay, TakesACallersMistakesAsPcscDoes) {
    const CardSeam& seam = *card.seam();
    Bytes reply(3);
    std::uint32_t length = 3;
    EXPECT_EQ(static_cast<std::uint32_t>(seam.transmit(seam.self, card.cardHandle() + 1, 1,
                                                       select.data(), 4, reply.data(), &length)),
              0x80100003u);
    EXPECT_EQ(send(select, 2).status, 0x8010000Fu);
    EXPECT_EQ(static_cast<std::uint32_t>(seam.transmit(seam.self, card.cardHandle(), 1,
                                                       select.data(), 4, reply.data(), &length)),
              0x80100008u);
    EXPECT_EQ(length, 4u);
}

TEST_F(Replay, TellsItsAtrAndProtocol) {
    const CardSeam& seam = *card.seam();
    std::uintptr_t handle = 0;
    std::uint32_t protocol = 0;
    EXPECT_EQ(seam.connect(seam.self, card.contextHandle(), 2, 3, &handle, &protocol), 0);
    EXPECT_EQ(protocol, 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(
                  seam.connect(seam.self, card.contextHandle(), 2, 2, &handle, &protocol)),
              0x8010000Fu);
    EXPECT_EQ(static_cast<std::uint32_t>(seam.reconnect(seam.self, handle, 2, 2, 0, &protocol)),
              0x8010000Fu);
    EXPECT_EQ(seam.reconnect(seam.self, handle, 2, 3, 0, &protocol), 0);
    std::uint32_t state = 0;
    Bytes atr(36);
    std::uint32_t length = 36;
    EXPECT_EQ(seam.status(seam.self, handle, &state, &protocol, atr.data(), &length), 0);
    atr.resize(length);
    EXPECT_EQ(atr, (Bytes{0x3B, 0x01}));
    length = 1;
    EXPECT_EQ(static_cast<std::uint32_t>(
                  seam.status(seam.self, handle, &state, &protocol, atr.data(), &length)),
              0x80100008u);
}

TEST_F(Replay, ShowsEachExchange) {
    std::vector<Bytes> seen;
    card.onExchange = [&](ByteView command, const Reply&) {
        seen.emplace_back(command.begin(), command.end());
    };
    send(select);
    send(select);
    EXPECT_EQ(seen, (std::vector<Bytes>{select, select}));
}

}  // namespace
}  // namespace recording
