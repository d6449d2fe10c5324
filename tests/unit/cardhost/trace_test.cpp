// What a trace shows and keeps: above all, no byte of a PIN.
#include <gmock/gmock.h>

#include "recording/parser.h"
#include "recording/writer.h"
#include "trace.h"

namespace cardhost {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const Bytes atr{0x3B, 0x00};
const Bytes done{0x90, 0x00};

struct PinCommand {
    const char* name;
    Bytes command;
};

const PinCommand pinCommands[] = {
    {"VERIFY", {0x00, 0x20, 0x00, 0x11, 0x04, 0x37, 0x38, 0x37, 0x38}},
    {"VERIFY, padded", {0x00, 0x20, 0x00, 0x11, 0x08, 0x37, 0x38, 0x37, 0x38, 0, 0, 0, 0}},
    {"VERIFY, chained", {0x10, 0x20, 0x00, 0x81, 0x04, 0x37, 0x38, 0x37, 0x38}},
    {"VERIFY, in BER-TLV", {0x00, 0x21, 0x00, 0x81, 0x04, 0x37, 0x38, 0x37, 0x38}},
    {"VERIFY, of extended length", {0x00, 0x20, 0, 0x81, 0, 0, 0x04, 0x37, 0x38, 0x37, 0x38}},
    {"CHANGE REFERENCE DATA", {0x00, 0x24, 0x00, 0x11, 0x04, 0x37, 0x38, 0x37, 0x38}},
    {"RESET RETRY COUNTER", {0x00, 0x2C, 0x00, 0x11, 0x04, 0x37, 0x38, 0x37, 0x38}},
};

TEST(Trace, ShowsNoByteOfAPin) {
    for (const PinCommand& row : pinCommands) {
        ::testing::internal::CaptureStderr();
        {
            const Trace trace(true);
            trace.begin(atr, recording::Protocol::t1);
            trace.entryPoint("CardAuthenticateEx with PIN 1");
            trace.command(row.command);
            trace.reply({done, 0, {}});
            trace.result(0);
        }
        const std::string shown = ::testing::internal::GetCapturedStderr();
        EXPECT_THAT(shown, HasSubstr("**")) << row.name;
        EXPECT_THAT(shown, Not(HasSubstr(" 37"))) << row.name;
        EXPECT_THAT(shown, Not(HasSubstr(" 38"))) << row.name;
    }
}

TEST(Trace, KeepsNoByteOfAPin) {
    for (const PinCommand& row : pinCommands) {
        recording::Conversation kept;
        const Trace trace(false, &kept);
        trace.begin(atr, recording::Protocol::t1);
        trace.command(row.command);
        trace.reply({done, 0, recording::Duration(0)});
        ASSERT_EQ(kept.entries.size(), 1u);
        const auto& exchange = std::get<recording::Exchange>(kept.entries[0]);
        EXPECT_EQ(exchange.command.bytes.size(), row.command.size());
        for (std::size_t at = 5; at < exchange.command.bytes.size(); ++at) {
            EXPECT_EQ(exchange.command.bytes[at], std::nullopt) << row.name << ", " << at;
        }
    }
}

TEST(Trace, ShowsWhatCanBeReplayed) {
    recording::Conversation kept;
    ::testing::internal::CaptureStderr();
    {
        const Trace trace(true, &kept);
        trace.begin(atr, recording::Protocol::t0);
        trace.entryPoint("CardAcquireContext");
        trace.command(Bytes{0x00, 0xA4, 0x00, 0x00});
        trace.reply({{}, 0x80100069, recording::Duration(3)});
        trace.result(0x8010001F);
    }
    const std::string shown = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(shown, HasSubstr("SCARD_W_REMOVED_CARD (the card was removed)"));
    EXPECT_THAT(shown, HasSubstr("SCARD_E_UNEXPECTED"));
    EXPECT_EQ(recording::parse(shown), kept);
}

TEST(Trace, TellsOfEachCallAheadOfIt) {
    const Trace trace(false);
    std::vector<std::string> calls;
    trace.onCall([&](const std::string& call) { calls.push_back(call); });
    trace.entryPoint("CardReadFile cardid");
    EXPECT_EQ(calls, std::vector<std::string>{"CardReadFile cardid"});
    EXPECT_FALSE(trace.isOn());
}

}  // namespace
}  // namespace cardhost
