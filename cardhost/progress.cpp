#include "progress.h"

#include <utility>

#include <fmt/format.h>

#include "os.h"

namespace cardhost {

namespace {

constexpr auto patience = std::chrono::seconds(1);
constexpr auto pace = std::chrono::milliseconds(250);
constexpr const char* toLineStart = "\r\033[K";
constexpr std::size_t longestName = 50;

}  // namespace

Progress::Progress(std::FILE* stream, bool isWanted) : now_(Clock::now) {
    if (!isWanted || !os::takesEscapeSequences(stream)) return;
    write_ = [stream](const std::string& text) {
        fmt::print(stream, "{}", text);
        std::fflush(stream);
    };
    hasThread_ = true;
}

Progress::Progress(std::function<void(const std::string&)> write, Now now)
    : write_(std::move(write)), now_(std::move(now)) {}

Progress::~Progress() {
    if (!watcher_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    ending_.notify_all();
    watcher_.join();
}

void Progress::begin(const std::string& what) {
    const std::lock_guard lock(mutex_);
    what_ = what.substr(0, longestName);
    start_ = shown_ = now_();
    steps_ = 0;
    isBegun_ = true;
    if (hasThread_ && !watcher_.joinable()) watcher_ = std::thread([this] { watch(); });
}

void Progress::watch() {
    std::unique_lock lock(mutex_);
    while (!ending_.wait_for(lock, pace, [this] { return isEnding_; })) show();
}

void Progress::step() {
    const std::lock_guard lock(mutex_);
    ++steps_;
    show();
}

void Progress::wait() {
    const std::lock_guard lock(mutex_);
    show();
}

void Progress::show() {
    if (!write_ || !isBegun_) return;
    const auto now = now_();
    if (now - start_ < patience || (isShown_ && now - shown_ < pace)) return;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    write_(fmt::format("{}{}: {} command{}, {:.1f} s", toLineStart, what_, steps_,
                       steps_ == 1 ? "" : "s", seconds));
    isShown_ = true;
    shown_ = now;
}

void Progress::end() {
    const std::lock_guard lock(mutex_);
    if (isShown_) write_(toLineStart);
    isShown_ = isBegun_ = false;
}

}  // namespace cardhost
