#include "doctor/log_lines.h"

#include <algorithm>
#include <optional>

namespace cardhost::doctor {

namespace {

constexpr std::size_t longestLine = 8192;
constexpr std::string_view timePattern = "[0000-00-00 00:00:00] [";  // 0: a digit
constexpr std::size_t timeLength = 19;

bool isTimeAt(std::string_view text, std::size_t at) {
    if (text.size() - at < timePattern.size()) return false;
    for (std::size_t i = 0; i < timePattern.size(); ++i) {
        const char found = text[at + i];
        if (timePattern[i] == '0' ? found < '0' || found > '9' : found != timePattern[i]) {
            return false;
        }
    }
    return true;
}

/// The next place from `from` on where a line of the log begins.
std::size_t nextLine(std::string_view text, std::size_t from) {
    for (std::size_t at = text.find('[', from); at != std::string_view::npos;
         at = text.find('[', at + 1)) {
        if (isTimeAt(text, at)) return at;
    }
    return text.size();
}

/// A line that begins with a time.
std::optional<LogLine> parsed(std::string_view text) {
    const std::size_t end = text.find("] ", timePattern.size());
    if (end == std::string_view::npos) return std::nullopt;
    return LogLine{text.substr(1, timeLength),
                   text.substr(timePattern.size(), end - timePattern.size()), text.substr(end + 2)};
}

}  // namespace

void LogLines::add(ByteView piece) {
    while (!piece.empty()) {
        const auto end = std::find(piece.begin(), piece.end(), std::uint8_t{'\n'});
        const auto length = static_cast<std::size_t>(end - piece.begin());
        const std::size_t room = longestLine - line_.size();
        line_.append(reinterpret_cast<const char*>(piece.data()), std::min(length, room));
        isLong_ = isLong_ || length > room;
        if (end == piece.end()) return;
        endLine();
        piece = piece.subspan(length + 1);
    }
}

void LogLines::finish() {
    if (!line_.empty() || isLong_) endLine();
}

void LogLines::endLine() {
    ++lines_;
    if (isLong_) ++strays_;
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    take(line_);
    line_.clear();
    isLong_ = false;
}

void LogLines::take(std::string_view line) {
    std::size_t at = nextLine(line, 0);
    // Some messages have a second line, which begins with a blank.
    if (at != 0 && !line.empty() && line.front() != ' ') ++strays_;
    while (at < line.size()) {
        const std::size_t next = nextLine(line, at + 1);
        const auto found = parsed(line.substr(at, next - at));
        if (found) use_(*found);
        if (!found || next < line.size()) ++strays_;
        at = next;
    }
}

}  // namespace cardhost::doctor
