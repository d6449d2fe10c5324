#include "recording/writer.h"

#include <cstdio>

#include "recording/meanings.h"

namespace recording {

namespace {

constexpr std::size_t bytesOfALine = 24;
constexpr std::size_t widestLine = 80;
constexpr std::size_t longestNote = longestLine - 2;
constexpr const char* continuation = "    ";

std::string timeText(const std::optional<Duration>& time) {
    if (!time) return {};
    const auto count = static_cast<long long>(time->count());
    char text[48];
    std::snprintf(text, sizeof(text), " in %lld.%03lld ms", count / 1000, count % 1000);
    return text;
}

std::string numberText(std::uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(number));
    return text;
}

/// One line out of any text, with none of the characters in `also`.
std::string oneLine(std::string text, const char* also) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F ||
            std::string_view(also).find(character) != std::string_view::npos) {
            character = '?';
        }
    }
    return text;
}

std::string withComment(const std::string& line, const std::string& comment) {
    return comment.empty() ? line : line + "  # " + oneLine(comment, "");
}

/// As long as the writer's own lines: a time is not negative.
Reply inBounds(Reply reply) {
    if (reply.time && reply.time->count() < 0) reply.time = Duration(0);
    return reply;
}

}  // namespace

void Writer::begin(ByteView atr, Protocol protocol) {
    sink_("conversation 1");
    bytes("ATR", hexText(atr), "", "");
    sink_(protocol == Protocol::t0 ? "protocol T=0" : "protocol T=1");
}

void Writer::note(const std::string& text) {
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find('\n', start);
        const std::string line =
            oneLine(text.substr(start, end - start), "").substr(0, longestNote);
        sink_(line.empty() ? "#" : "# " + line);
        if (end == std::string::npos) return;
        start = end + 1;
    }
}

void Writer::call(const std::string& text) {
    sink_(oneLine(text, "#"));
}

void Writer::command(ByteView command) {
    this->command(WrittenCommand(command));
}

void Writer::command(const WrittenCommand& command) {
    bytes("  >", hexText(command), "", meaningOfCommand(command.withoutPin()));
}

void Writer::reply(const Reply& given, const std::string& meaning) {
    const Reply reply = inBounds(given);
    const std::string time = timeText(reply.time);
    if (reply.failure != 0) {
        sink_(withComment("  < failed " + numberText(reply.failure) + time, meaning));
    } else if (reply.bytes.empty()) {
        sink_("  < nothing" + time);
    } else {
        bytes("  <", hexText(reply.bytes), time, meaningOfReply(reply.bytes));
    }
}

void Writer::result(const Result& result, const std::string& meaning) {
    sink_(withComment("  = " + numberText(result.status) + timeText(result.time), meaning));
}

void Writer::logLine(const std::string& text) {
    sink_(oneLine(text, ""));
}

void Writer::end() {
    sink_("end");
}

// Bytes in lines of equal length, and the rest behind them where a terminal has room for it.
void Writer::bytes(const char* mark, const std::string& hex, const std::string& tail,
                   const std::string& comment) {
    constexpr std::size_t perLine = bytesOfALine * 3;
    std::string line = mark;
    for (std::size_t at = 0; at < hex.size(); at += perLine) {
        if (at > 0) {
            sink_(line);
            line = std::string(continuation).substr(1);
        }
        line += " " + hex.substr(at, perLine - 1);
    }
    const auto add = [&](const std::string& what, const std::string& next) {
        if (what.empty()) return;
        if (line.size() + what.size() > widestLine) {
            sink_(line);
            line = next;
        } else {
            line += what;
        }
    };
    add(tail, std::string(continuation).substr(1) + tail);
    add(comment.empty() ? "" : "  # " + comment, continuation + ("# " + comment));
    sink_(line);
}

void write(const Conversation& conversation, Writer& writer) {
    writer.begin(conversation.atr, conversation.protocol);
    for (const Entry& entry : conversation.entries) {
        if (const auto* note = std::get_if<Note>(&entry)) writer.note(note->text);
        if (const auto* call = std::get_if<Call>(&entry)) writer.call(call->text);
        if (const auto* exchange = std::get_if<Exchange>(&entry)) {
            writer.command(exchange->command);
            writer.reply(exchange->reply);
        }
        if (const auto* result = std::get_if<Result>(&entry)) writer.result(*result);
        if (const auto* line = std::get_if<LogLine>(&entry)) writer.logLine(line->text);
    }
    writer.end();
}

std::string textOf(const Conversation& conversation) {
    std::string text;
    Writer writer([&](const std::string& line) { text += line + '\n'; });
    write(conversation, writer);
    return text;
}

}  // namespace recording
