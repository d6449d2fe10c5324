#include "driver_log.h"

#include <charconv>
#include <fstream>

#include <fmt/format.h>

#include "doctor/log_lines.h"
#include "exit_codes.h"
#include "files.h"

namespace cardhost {

namespace {

constexpr std::size_t readAtMost = 4 * 1024 * 1024;
constexpr std::string_view entering = "Entering the function";
constexpr std::string_view exiting = "Exiting the function, with status code: '0x";

/// A line as the log has it.
std::string textOf(const doctor::LogLine& line) {
    return fmt::format("[{}] [{}] {}", line.time, line.scope, line.message);
}

template <typename Use>
void forEachLine(std::string_view text, const Use& use) {
    doctor::LogLines lines(use);
    lines.add(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    lines.finish();
}

}  // namespace

LogFollower::LogFollower(std::filesystem::path file) : file_(std::move(file)) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file_, error);
    if (!error) seen_ = size;
}

std::vector<std::string> LogFollower::newLines() {
    std::error_code error;
    const auto size = std::filesystem::file_size(file_, error);
    std::vector<std::string> lines;
    if (error || size <= seen_ || size - seen_ > readAtMost) return lines;
    std::ifstream stream(file_, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(seen_));
    std::string text(static_cast<std::size_t>(size - seen_), '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    seen_ += text.size();
    forEachLine(text, [&](const doctor::LogLine& line) { lines.push_back(textOf(line)); });
    return lines;
}

recording::Conversation lastLogonIn(std::string_view text) {
    recording::Conversation conversation;
    std::string open;
    forEachLine(text, [&](const doctor::LogLine& line) {
        if (line.message == entering) {
            if (line.scope == "CardAcquireContext") conversation.entries.clear();
            open = line.scope;
            conversation.entries.push_back(recording::Call{open});
            return;
        }
        if (line.scope == open && !open.empty() && line.message.starts_with(exiting)) {
            recording::Result result;
            const std::string_view number = line.message.substr(exiting.size());
            std::from_chars(number.data(), number.data() + number.size(), result.status, 16);
            conversation.entries.push_back(result);
            open.clear();
            return;
        }
        if (!conversation.entries.empty()) {
            conversation.entries.push_back(recording::LogLine{textOf(line)});
        }
    });
    return conversation;
}

recording::Conversation lastLogonInLog(const std::filesystem::path& file) {
    std::string text;
    forEachPiece(file, [&](ByteView piece) {
        text.append(piece.begin(), piece.end());
        if (text.size() > 2 * readAtMost) text.erase(0, text.size() - readAtMost);
    });
    auto conversation = lastLogonIn(text);
    if (conversation.entries.empty()) {
        throw Failure(ExitCode::file,
                      fmt::format("{} tells of no call of the driver", shown(file)));
    }
    return conversation;
}

}  // namespace cardhost
