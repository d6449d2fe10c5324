#include "recording/parser.h"

#include <algorithm>
#include <charconv>

namespace recording {

namespace {

constexpr long long longestTimeMs = 24LL * 60 * 60 * 1000;

int digitOf(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    return -1;
}

bool isBlank(char character) {
    return character == ' ' || character == '\t';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

/// A piece of the text as a message may show it.
std::string shown(std::string_view text) {
    constexpr std::size_t longest = 30;
    std::string result(text.substr(0, longest));
    for (char& character : result) {
        if (character < 0x20 || character == 0x7F) character = '?';
    }
    return "'" + result + (text.size() > longest ? "...'" : "'");
}

class Parser {
public:
    Conversation parse(std::string_view text) {
        if (text.size() > largestText) {
            throw FormatError(1, "the text is larger than the " + std::to_string(largestText) +
                                     " bytes that are read");
        }
        while (!text.empty()) {
            ++line_;
            const std::size_t end = text.find('\n');
            std::string_view line = text.substr(0, end);
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            if (line.size() > longestLine) fail("the line is too long");
            read(line);
        }
        if (!isBegun_) fail("this is no conversation: it does not begin with 'conversation 1'");
        if (!isEnded_) fail("the conversation is cut: it does not finish with 'end'");
        return std::move(conversation_);
    }

private:
    /// What the bytes of a further line belong to.
    enum class Open { nothing, atr, command, reply };

    [[noreturn]] void fail(const std::string& what) const {
        throw FormatError(line_ == 0 ? 1 : line_, what);
    }

    void read(std::string_view line) {
        if (trimmed(line).empty()) return;
        if (line.front() == '[') return readLogLine(line);
        if (line.front() == '#') return readNote(line.substr(1));
        if (line.starts_with("cardhost: ")) return;  // a message of the program that traced
        const bool isIndented = isBlank(line.front());
        line = trimmed(line.substr(0, line.find('#')));
        if (line.empty()) return;
        if (!isIndented) return readHeadOrCall(line);
        switch (line.front()) {
            case '>':
                return readCommand(line.substr(1));
            case '<':
                return readReply(trimmed(line.substr(1)));
            case '=':
                return readResult(trimmed(line.substr(1)));
            default:
                return readFurtherBytes(line);
        }
    }

    void readNote(std::string_view text) {
        if (!text.empty() && text.front() == ' ') text.remove_prefix(1);
        // A note may stand between a command and its reply; it is kept behind both.
        if (isBegun_ && !isEnded_) conversation_.entries.push_back(Note{std::string(text)});
    }

    void readLogLine(std::string_view line) {
        if (isBegun_ && !isEnded_) conversation_.entries.push_back(LogLine{std::string(line)});
    }

    void readHeadOrCall(std::string_view line) {
        if (isEnded_) fail("something stands behind the end: " + shown(line));
        if (!isBegun_) {
            if (line == "conversation 1") {
                isBegun_ = true;
                return;
            }
            if (line.starts_with("conversation ")) {
                fail("a form of conversation that is not known: " + shown(line));
            }
            fail("this is no conversation: it does not begin with 'conversation 1'");
        }
        if (line.starts_with("ATR ")) return readAtr(line.substr(4));
        if (line.starts_with("protocol ")) return readProtocol(trimmed(line.substr(9)));
        requireHead();
        requireNoCommand();
        open_ = Open::nothing;
        if (line == "end") {
            isEnded_ = true;
            return;
        }
        if (line.front() < 'A' || line.front() > 'Z') fail("not understood: " + shown(line));
        conversation_.entries.push_back(Call{std::string(line)});
        isCalled_ = true;
    }

    void readAtr(std::string_view text) {
        if (hasAtr_) fail("a second ATR");
        hasAtr_ = true;
        open_ = Open::atr;
        appendBytes(conversation_.atr, text, longestAtr, "an ATR");
        if (conversation_.atr.empty()) fail("the ATR is empty");
    }

    void readProtocol(std::string_view text) {
        if (hasProtocol_) fail("a second protocol");
        if (text != "T=0" && text != "T=1") fail("no protocol of a card: " + shown(text));
        hasProtocol_ = true;
        open_ = Open::nothing;
        conversation_.protocol = text == "T=0" ? Protocol::t0 : Protocol::t1;
    }

    void readCommand(std::string_view text) {
        requireBody();
        requireNoCommand();
        Exchange exchange;
        exchange.line = line_;
        conversation_.entries.push_back(std::move(exchange));
        command_ = conversation_.entries.size() - 1;
        hasCommand_ = true;
        open_ = Open::command;
        appendCommandBytes(text);
        if (exchangeNow().command.bytes.empty()) fail("a command without bytes");
    }

    void readReply(std::string_view text) {
        requireBody();
        if (!hasCommand_) fail("a reply without a command");
        Reply& reply = exchangeNow().reply;
        hasCommand_ = false;
        open_ = Open::nothing;
        if (text.starts_with("failed ")) {
            text = cutTime(text, reply.time);
            reply.failure = numberOf(trimmed(text.substr(std::min<std::size_t>(7, text.size()))));
            if (reply.failure == 0) fail("a failure has a code other than 0");
        } else if (text.starts_with("nothing")) {
            text = cutTime(text, reply.time);
            if (text != "nothing") fail("not understood: " + shown(text));
        } else {
            open_ = Open::reply;
            appendReplyBytes(text);
            if (reply.bytes.empty()) fail("a reply without bytes is written as 'nothing'");
        }
    }

    void readResult(std::string_view text) {
        requireBody();
        requireNoCommand();
        if (!isCalled_) fail("a status without a call");
        isCalled_ = false;
        open_ = Open::nothing;
        Result result;
        text = cutTime(text, result.time);
        result.status = numberOf(text);
        conversation_.entries.push_back(result);
    }

    void readFurtherBytes(std::string_view text) {
        switch (open_) {
            case Open::atr:
                return appendBytes(conversation_.atr, text, longestAtr, "an ATR");
            case Open::command:
                return appendCommandBytes(text);
            case Open::reply:
                return appendReplyBytes(text);
            case Open::nothing:
                fail("not understood: " + shown(text));
        }
    }

    void requireHead() const {
        if (!hasAtr_) fail("the conversation has no ATR ahead of this");
        if (!hasProtocol_) fail("the conversation has no protocol ahead of this");
    }

    void requireBody() const {
        if (!isBegun_) {
            fail("this is no conversation: it does not begin with 'conversation 1'");
        }
        if (isEnded_) fail("something stands behind the end");
        requireHead();
    }

    void requireNoCommand() const {
        if (hasCommand_) {
            fail("the command of line " +
                 std::to_string(std::get<Exchange>(conversation_.entries[command_]).line) +
                 " has no reply");
        }
    }

    Exchange& exchangeNow() { return std::get<Exchange>(conversation_.entries[command_]); }

    template <typename Use>
    void forEachByte(std::string_view text, const Use& use) const {
        text = trimmed(text);
        while (!text.empty()) {
            const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
            const std::string_view word = text.substr(0, end);
            if (word == "**") {
                use(std::nullopt);
            } else if (word.size() == 2 && digitOf(word[0]) >= 0 && digitOf(word[1]) >= 0) {
                use(std::optional(
                    static_cast<std::uint8_t>(digitOf(word[0]) << 4 | digitOf(word[1]))));
            } else {
                fail("no byte of two hexadecimal digits: " + shown(word));
            }
            text = trimmed(text.substr(end));
        }
    }

    void appendBytes(Bytes& bytes, std::string_view text, std::size_t longest,
                     const char* what) const {
        forEachByte(text, [&](std::optional<std::uint8_t> byte) {
            if (!byte) fail("only a command can have masked bytes");
            if (bytes.size() == longest) {
                fail(std::string("longer than ") + what + " can be");
            }
            bytes.push_back(*byte);
        });
    }

    void appendCommandBytes(std::string_view text) {
        auto& bytes = exchangeNow().command.bytes;
        forEachByte(text, [&](std::optional<std::uint8_t> byte) {
            if (bytes.size() == longestCommand) fail("longer than a command can be");
            bytes.push_back(byte);
        });
    }

    void appendReplyBytes(std::string_view text) {
        Reply& reply = exchangeNow().reply;
        if (reply.time) fail("bytes behind the time of a reply");
        text = cutTime(text, reply.time);
        appendBytes(reply.bytes, text, longestReply, "a reply");
    }

    /// Takes "in 12.345 ms" from the end of a text; gives what stood ahead of it.
    std::string_view cutTime(std::string_view text, std::optional<Duration>& time) const {
        const std::size_t at = text.starts_with("in ") ? 0 : text.find(" in ");
        if (at == std::string_view::npos) return trimmed(text);
        std::string_view value = trimmed(trimmed(text.substr(at)).substr(2));
        if (!value.ends_with(" ms")) fail("no time in milliseconds: " + shown(value));
        value.remove_suffix(3);
        const std::size_t point = value.find('.');
        const long long whole = decimalOf(value.substr(0, point));
        long long micros = 0;
        if (point != std::string_view::npos) {
            const std::string_view fraction = value.substr(point + 1);
            if (fraction.size() > 3) fail("a time finer than a microsecond: " + shown(value));
            micros = decimalOf(fraction);
            for (std::size_t digits = fraction.size(); digits < 3; ++digits) micros *= 10;
        }
        time = Duration(whole * 1000 + micros);
        return trimmed(text.substr(0, at));
    }

    long long decimalOf(std::string_view text) const {
        long long number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
            number < 0 || text.front() == '-' || number > longestTimeMs) {
            fail("no time in milliseconds: " + shown(text));
        }
        return number;
    }

    std::uint32_t numberOf(std::string_view text) const {
        std::uint32_t number = 0;
        if (!text.starts_with("0x") || text.size() < 3) {
            fail("no number such as 0x80100069: " + shown(text));
        }
        const auto [end, error] =
            std::from_chars(text.data() + 2, text.data() + text.size(), number, 16);
        if (error != std::errc() || end != text.data() + text.size()) {
            fail("no number such as 0x80100069: " + shown(text));
        }
        return number;
    }

    Conversation conversation_;
    std::size_t line_ = 0;
    bool isBegun_ = false;
    bool isEnded_ = false;
    bool hasAtr_ = false;
    bool hasProtocol_ = false;
    bool hasCommand_ = false;  // one that waits for its reply
    bool isCalled_ = false;    // an entry point that waits for its status
    std::size_t command_ = 0;
    Open open_ = Open::nothing;
};

}  // namespace

Conversation parse(std::string_view text) {
    return Parser().parse(text);
}

}  // namespace recording
