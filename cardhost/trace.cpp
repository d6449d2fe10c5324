#include "trace.h"

#include <chrono>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "progress.h"
#include "recording/writer.h"
#include "status_names.h"
#include "terminal.h"

namespace cardhost {

namespace {

using Clock = std::chrono::steady_clock;

recording::Duration since(Clock::time_point start) {
    return std::chrono::duration_cast<recording::Duration>(Clock::now() - start);
}

/// Calls stand out; what the card and the driver refused is red.
Style styleOf(const std::string& line) {
    if (line.starts_with("  = 0x00000000")) return Style::plain;
    if (line.starts_with("  = ") || line.starts_with("  < failed")) return Style::bad;
    if (line.starts_with("  >")) return Style::faint;
    return line.starts_with("Card") ? Style::heading : Style::plain;
}

}  // namespace

struct Trace::State {
    State(bool isShown, recording::Conversation* conversation)
        : kept(conversation), progress(stderr, !isShown), terminal(stderr) {
        if (!isShown) return;
        writer.emplace([this](const std::string& line) {
            fmt::print(stderr, "{}\n", terminal.styled(styleOf(line), line));
        });
    }

    void keep(recording::Entry entry) const {
        if (kept != nullptr) kept->entries.push_back(std::move(entry));
    }

    recording::Conversation* kept;
    Progress progress;
    Terminal terminal;
    std::optional<recording::Writer> writer;
    std::vector<std::function<void(const std::string&)>> listeners;
    recording::WrittenCommand command;
    Clock::time_point commandStart;
    Clock::time_point callStart;
    std::chrono::nanoseconds timeInCalls{0};
    std::size_t exchanges = 0;
    bool isBegun = false;
};

Trace::Trace(bool isShown, recording::Conversation* kept,
             std::function<void(const std::string&)> listener)
    : state_(std::make_unique<State>(isShown, kept)) {
    if (listener) onCall(std::move(listener));
}

Trace::~Trace() {
    if (state_->writer && state_->isBegun) state_->writer->end();
}

bool Trace::isOn() const {
    return state_->writer || state_->kept != nullptr;
}

bool Trace::isUseful() const {
    return isOn() || state_->progress.isOn();
}

std::size_t Trace::exchanges() const {
    return state_->exchanges;
}

std::chrono::nanoseconds Trace::timeInCalls() const {
    return state_->timeInCalls;
}

void Trace::onCall(std::function<void(const std::string&)> listener) const {
    state_->listeners.push_back(std::move(listener));
}

void Trace::begin(ByteView atr, recording::Protocol protocol) const {
    state_->isBegun = true;
    if (state_->writer) state_->writer->begin(atr, protocol);
    if (state_->kept == nullptr) return;
    state_->kept->atr.assign(atr.begin(), atr.end());
    state_->kept->protocol = protocol;
}

void Trace::entryPoint(const std::string& call) const {
    for (const auto& listener : state_->listeners) listener(call);
    if (state_->writer) state_->writer->call(call);
    state_->keep(recording::Call{call});
    state_->progress.begin(call);
    state_->callStart = Clock::now();
}

void Trace::result(DWORD status) const {
    const std::chrono::nanoseconds time = Clock::now() - state_->callStart;
    state_->timeInCalls += time;
    const recording::Result result{static_cast<std::uint32_t>(status),
                                   std::chrono::duration_cast<recording::Duration>(time)};
    state_->progress.end();
    if (state_->writer) {
        state_->writer->result(result, status == 0 ? "" : statusMeaning(status));
    }
    state_->keep(result);
}

void Trace::command(ByteView command) const {
    if (state_->writer) state_->writer->command(command);
    state_->command = recording::WrittenCommand(command);
    state_->commandStart = Clock::now();
}

void Trace::reply(recording::Reply reply) const {
    if (!reply.time) reply.time = since(state_->commandStart);
    ++state_->exchanges;
    state_->progress.step();
    if (state_->writer) {
        state_->writer->reply(reply, reply.failure == 0 ? "" : statusMeaning(reply.failure));
    }
    state_->keep(recording::Exchange{std::move(state_->command), std::move(reply), 0});
}

}  // namespace cardhost
