// Writing conversations and reading them back.
#include <gmock/gmock.h>

#include "recording/meanings.h"
#include "recording/parser.h"
#include "recording/writer.h"

namespace recording {
namespace {

using ::testing::HasSubstr;

constexpr const char* head = "conversation 1\nATR 3B 00\nprotocol T=1\n";

std::string withHead(const std::string& body) {
    return head + body + "end\n";
}

/// The message with which a text is refused; empty if it is taken.
std::string refusalOf(const std::string& text) {
    try {
        parse(text);
        return {};
    } catch (const FormatError& error) {
        return error.what();
    }
}

Conversation oneOfEach() {
    Conversation conversation;
    conversation.atr = {0x3B, 0xDD, 0x96};
    conversation.protocol = Protocol::t0;
    const Bytes select{0x00, 0xA4, 0x00, 0x0C, 0x02, 0x3F, 0x00};
    const Bytes verify{0x00, 0x20, 0x00, 0x11, 0x04, 0x31, 0x32, 0x33, 0x34};
    conversation.entries = {
        Note{"made by hand"},
        Call{"CardAcquireContext"},
        Exchange{WrittenCommand(select), {{0x90, 0x00}, 0, Duration(1234)}},
        Exchange{WrittenCommand(select), {Bytes(130, 0x55), 0, Duration(5)}},
        Exchange{WrittenCommand(verify), {{0x63, 0xC4}, 0, {}}},
        Exchange{WrittenCommand(select), {{}, 0, {}}},
        Exchange{WrittenCommand(select), {{}, 0x80100069, Duration(0)}},
        LogLine{"[2026-11-21 05:10:19] [CardAcquireContext] # Entering the function"},
        Result{0x8010001F, Duration(70000)},
        Note{""},
        Call{"CardDeleteContext"},
        Result{0, {}},
    };
    return conversation;
}

TEST(TextForm, IsThis) {
    EXPECT_EQ(textOf(oneOfEach()), R"(conversation 1
ATR 3B DD 96
protocol T=0
# made by hand
CardAcquireContext
  > 00 A4 00 0C 02 3F 00  # SELECT by identifier
  < 90 00 in 1.234 ms  # done
  > 00 A4 00 0C 02 3F 00  # SELECT by identifier
  < 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55
    55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55
    55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55
    55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55
    55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55
    55 55 55 55 55 55 55 55 55 55 in 0.005 ms  # 128 bytes
  > 00 20 00 11 04 ** ** ** **  # VERIFY
  < 63 C4  # tries left: 4
  > 00 A4 00 0C 02 3F 00  # SELECT by identifier
  < nothing
  > 00 A4 00 0C 02 3F 00  # SELECT by identifier
  < failed 0x80100069 in 0.000 ms
[2026-11-21 05:10:19] [CardAcquireContext] # Entering the function
  = 0x8010001F in 70.000 ms
#
CardDeleteContext
  = 0x00000000
end
)");
}

TEST(TextForm, IsReadBackAsItWasWritten) {
    EXPECT_EQ(parse(textOf(oneOfEach())), oneOfEach());
}

TEST(TextForm, FitsATerminal) {
    Conversation conversation = oneOfEach();
    for (std::size_t size = 1; size < 60; ++size) {
        Exchange exchange{WrittenCommand(Bytes(size, 0xB0)),
                          {Bytes(size, 0x61), 0, Duration(99999)}};
        conversation.entries.push_back(exchange);
    }
    const std::string text = textOf(conversation);
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        EXPECT_LE(end - start, 80u) << text.substr(start, end - start);
        start = end + 1;
    }
    EXPECT_EQ(parse(text), conversation);
}

TEST(TextForm, MasksThePinOfEveryCommandThatCarriesOne) {
    for (const std::uint8_t instruction : Bytes{0x20, 0x21, 0x24, 0x25, 0x2C, 0x2D}) {
        for (const std::uint8_t cla : Bytes{0x00, 0x10, 0x80, 0x0C}) {
            const Bytes command{cla, instruction, 0x00, 0x81, 0x03, 0x31, 0x32, 0x33};
            EXPECT_THAT(hexText(WrittenCommand(command)),
                        ::testing::EndsWith(" 00 81 03 ** ** **"));
        }
    }
    const Bytes query{0x00, 0x20, 0x00, 0x81, 0x00};
    EXPECT_EQ(hexText(WrittenCommand(query)), "00 20 00 81 00");
    const Bytes manage{0x00, 0x22, 0x41, 0xB6, 0x01, 0x84};
    EXPECT_EQ(hexText(WrittenCommand(manage)), "00 22 41 B6 01 84");
    // The length of an extended command stands where the PIN would be: masked with it.
    const Bytes extended{0x00, 0x20, 0x00, 0x81, 0x00, 0x00, 0x01, 0x31};
    EXPECT_EQ(hexText(WrittenCommand(extended)), "00 20 00 81 00 ** ** **");
}

TEST(TextForm, AMaskedByteStandsForAnyOther) {
    const Bytes right{0x00, 0x20, 0x00, 0x11, 0x02, 0x31, 0x32};
    const Bytes other{0x00, 0x20, 0x00, 0x11, 0x02, 0x39, 0x39};
    const Bytes anotherPin{0x00, 0x20, 0x00, 0x12, 0x02, 0x31, 0x32};
    const Bytes longer{0x00, 0x20, 0x00, 0x11, 0x02, 0x31, 0x32, 0x33};
    const WrittenCommand written(right);
    EXPECT_TRUE(written.matches(right));
    EXPECT_TRUE(written.matches(other));
    EXPECT_FALSE(written.matches(anotherPin));
    EXPECT_FALSE(written.matches(longer));
}

TEST(TextForm, WhatIsWrittenStaysOnItsLine) {
    Conversation conversation;
    conversation.atr = {0x3B};
    conversation.entries = {Call{"CardReadFile a\nend\r#\x01"}, Note{"two\nlines\x7F"},
                            Note{std::string(10000, 'x')}};
    const Conversation back = parse(textOf(conversation));
    ASSERT_EQ(back.entries.size(), 4u);
    EXPECT_EQ(std::get<Call>(back.entries[0]).text, "CardReadFile a?end???");
    EXPECT_EQ(std::get<Note>(back.entries[1]).text, "two");
    EXPECT_EQ(std::get<Note>(back.entries[2]).text, "lines?");
    EXPECT_EQ(std::get<Note>(back.entries[3]).text.size(), longestLine - 2);
}

TEST(Parser, TakesBlanksCommentsLowerCaseAndMessagesAsTheyCome) {
    const Conversation conversation = parse(
        "# ahead of all\r\n\r\nconversation 1 # the form\r\nATR 3b\r\n  00 # more of it\r\n"
        "protocol T=1\r\ncardhost: PIN 1 is wrong\r\nCardAcquireContext  # here\r\n\t> 00 a4\r\n"
        "     04 00# split\r\n  # alone\r\n  < 6f\t00\r\n    90 00 in 2 ms\r\n  =  0x1F in 1.5 "
        "ms\r\n"
        "end\r\n\r\n# behind\r\n");
    Conversation expected;
    expected.atr = {0x3B, 0x00};
    const Bytes command{0x00, 0xA4, 0x04, 0x00};
    expected.entries = {
        Call{"CardAcquireContext"},
        Exchange{WrittenCommand(command), {{0x6F, 0x00, 0x90, 0x00}, 0, Duration(2000)}},
        Result{0x1F, Duration(1500)}};
    EXPECT_EQ(conversation, expected);
    EXPECT_EQ(std::get<Exchange>(conversation.entries[1]).line, 9u);
}

struct Refusal {
    const char* text;
    const char* message;
};

const Refusal refusals[] = {
    {"", "line 1: this is no conversation: it does not begin with 'conversation 1'"},
    {"\n\n", "line 2: this is no conversation"},
    {"hello\n", "line 1: this is no conversation"},
    {"  > 00 A4 04 00\n", "line 1: this is no conversation"},
    {"conversation 2\n", "line 1: a form of conversation that is not known: 'conversation 2'"},
    {"conversation 1\n", "line 1: the conversation is cut: it does not finish with 'end'"},
    {"conversation 1\nend\n", "line 2: the conversation has no ATR ahead of this"},
    {"conversation 1\nATR 3B\nend\n", "line 3: the conversation has no protocol ahead of this"},
    {"conversation 1\nATR 3B\nATR 3B\n", "line 3: a second ATR"},
    {"conversation 1\nATR 3B\nprotocol T=1\nprotocol T=1\n", "line 4: a second protocol"},
    {"conversation 1\nATR \n", "line 2: the conversation has no ATR ahead of this"},
    {"conversation 1\nATR # 3B\n", "line 2: the conversation has no ATR ahead of this"},
    {"conversation 1\nprotocol T=3\n", "line 2: no protocol of a card: 'T=3'"},
    {"conversation 1\nATR **\n", "line 2: only a command can have masked bytes"},
};

const Refusal bodyRefusals[] = {
    {"cardFoo\n", "line 4: not understood: 'cardFoo'"},
    {"  00 A4\n", "line 4: not understood: '00 A4'"},
    {"  ? 00 A4\n", "line 4: not understood: '? 00 A4'"},
    {"  >\n", "line 4: a command without bytes"},
    {"  > 0\n", "line 4: no byte of two hexadecimal digits: '0'"},
    {"  > 00A4\n", "line 4: no byte of two hexadecimal digits: '00A4'"},
    {"  > 0G\n", "line 4: no byte of two hexadecimal digits: '0G'"},
    {"  < 90 00\n", "line 4: a reply without a command"},
    {"  > 00\n  > 00\n", "line 5: the command of line 4 has no reply"},
    {"  > 00\nCardA\n", "line 5: the command of line 4 has no reply"},
    {"  > 00\n", "line 5: the command of line 4 has no reply"},
    {"  > 00\n  <\n", "line 5: a reply without bytes is written as 'nothing'"},
    {"  > 00\n  < **\n", "line 5: only a command can have masked bytes"},
    {"  > 00\n  < 90 00\n  < 90 00\n", "line 6: a reply without a command"},
    {"  > 00\n  < nothing at all\n", "line 5: not understood: 'nothing at all'"},
    {"  > 00\n  < failed\n", "line 5: no byte of two hexadecimal digits: 'failed'"},
    {"  > 00\n  < failed 80100069\n", "line 5: no number such as 0x80100069: '80100069'"},
    {"  > 00\n  < failed 0x180100069\n", "line 5: no number such as 0x80100069: '0x180100069'"},
    {"  > 00\n  < failed 0x0\n", "line 5: a failure has a code other than 0"},
    {"  > 00\n  < failed 0x-1\n", "line 5: no number such as"},
    {"  > 00\n  < 90 00 in 1\n", "line 5: no time in milliseconds: '1'"},
    {"  > 00\n  < 90 00 in -1 ms\n", "line 5: no time in milliseconds: '-1'"},
    {"  > 00\n  < 90 00 in 1.-5 ms\n", "line 5: no time in milliseconds: '-5'"},
    {"  > 00\n  < 90 00 in . ms\n", "line 5: no time in milliseconds: ''"},
    {"  > 00\n  < 90 00 in 1.2345 ms\n", "line 5: a time finer than a microsecond: '1.2345'"},
    {"  > 00\n  < 90 00 in 86400001 ms\n", "line 5: no time in milliseconds: '86400001'"},
    {"  > 00\n  < 90 00 in 99999999999999999999 ms\n", "line 5: no time in milliseconds"},
    {"  > 00\n  < 90 00 in 1 ms\n    90 00\n", "line 6: bytes behind the time of a reply"},
    {"  = 0x0\n", "line 4: a status without a call"},
    {"CardA\n  = 0x0\n  = 0x0\n", "line 6: a status without a call"},
    {"CardA\n  = 0\n", "line 5: no number such as 0x80100069: '0'"},
    {"CardA\n  = 0x\n", "line 5: no number such as 0x80100069: '0x'"},
    {"end\nCardA\n", "line 5: something stands behind the end: 'CardA'"},
    {"end\n  > 00\n", "line 5: something stands behind the end"},
};

TEST(Parser, TellsTheLineAndWhatIsWrongWithIt) {
    for (const Refusal& row : refusals) EXPECT_THAT(refusalOf(row.text), HasSubstr(row.message));
    for (const Refusal& row : bodyRefusals) {
        EXPECT_THAT(refusalOf(withHead(row.text)), HasSubstr(row.message)) << row.text;
    }
}

TEST(Parser, RefusesATextThatWasCutAnywhere) {
    const std::string whole = textOf(oneOfEach());
    for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
        EXPECT_NE(refusalOf(whole.substr(0, size)), "") << size;
    }
}

TEST(Parser, TakesNothingLargerThanMakesSense) {
    const std::string many = [] {
        std::string bytes;
        for (int i = 0; i < 1000; ++i) bytes += " 00";
        return bytes;
    }();
    std::string command = "  >" + many + "\n";
    for (int i = 0; i < 65; ++i) command += "   " + many + "\n";
    EXPECT_THAT(refusalOf(withHead(command)), HasSubstr("line 69: longer than a command can be"));
    std::string reply = "  > 00\n  <" + many + "\n";
    for (int i = 0; i < 65; ++i) reply += "   " + many + "\n";
    EXPECT_THAT(refusalOf(withHead(reply)), HasSubstr("line 70: longer than a reply can be"));
    EXPECT_THAT(refusalOf("conversation 1\nATR" + many + "\n"),
                HasSubstr("line 2: longer than an ATR can be"));
    EXPECT_THAT(refusalOf(withHead("#" + std::string(longestLine, 'x') + "\n")),
                HasSubstr("line 4: the line is too long"));
    EXPECT_THAT(refusalOf(std::string(largestText + 1, '\n')),
                HasSubstr("larger than the 16777216"));
}

TEST(Parser, ShowsNoControlCharacterOfTheText) {
    EXPECT_EQ(refusalOf(withHead("\x1B[2J" + std::string(100, 'y') + "\n")),
              "line 4: not understood: '?[2Jyyyyyyyyyyyyyyyyyyyyyyyyyy...'");
}

TEST(Meanings, OfCommandsAndReplies) {
    const auto ofCommand = [](const Bytes& bytes) { return meaningOfCommand(bytes); };
    const auto ofReply = [](const Bytes& bytes) { return meaningOfReply(bytes); };
    EXPECT_EQ(ofCommand({0x00, 0xB0, 0x01, 0x02, 0x7F}), "READ BINARY at 258");
    EXPECT_EQ(ofCommand({0x00, 0x20, 0x00, 0x11, 0x00}), "VERIFY, query");
    EXPECT_EQ(ofCommand({0x10, 0x2A, 0x80, 0x86, 0x00}), "PSO DECIPHER, chained");
    EXPECT_EQ(ofCommand({0x00, 0x2A, 0x9E, 0x9A, 0x00}), "PSO COMPUTE SIGNATURE");
    EXPECT_EQ(ofCommand({0x00, 0x22, 0x41, 0xB8, 0x00}), "MSE SET, confidentiality");
    EXPECT_EQ(ofCommand({0x00, 0xCB, 0x3F, 0xFF, 0x00}), "GET DATA");
    EXPECT_EQ(ofCommand({0x00, 0xA4}), "command");
    EXPECT_EQ(ofCommand({}), "command");
    EXPECT_EQ(ofReply({}), "no reply");
    EXPECT_EQ(ofReply({0x90}), "no status word");
    EXPECT_EQ(ofReply({0x61, 0x00}), "bytes waiting: 256");
    EXPECT_EQ(ofReply({0x6C, 0x1A}), "wrong Le, right is 26");
    EXPECT_EQ(ofReply({0x63, 0xC0}), "tries left: 0");
    EXPECT_EQ(ofReply({0x6A, 0x82}), "file not found");
    EXPECT_EQ(ofReply({0x01, 0x62, 0x82}), "1 bytes, end of the file reached");
    EXPECT_EQ(ofReply({0x77, 0x77}), "");
}

}  // namespace
}  // namespace recording
