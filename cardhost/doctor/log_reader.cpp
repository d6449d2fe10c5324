#include "doctor/log_reader.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "doctor/log_explanation.h"

namespace cardhost::doctor {

namespace {

constexpr std::size_t mostAcquisitions = 10;
constexpr std::size_t mostIncidents = 20;
constexpr std::size_t mostPending = 100;
constexpr std::size_t longestText = 200;
constexpr std::size_t longestShownLine = 2000;

constexpr std::string_view entryText = "Entering the function";
constexpr std::string_view exitText = "Exiting the function, with status code: '0x";
constexpr std::string_view acquire = "CardAcquireContext";
constexpr std::string_view release = "CardDeleteContext";

constexpr std::string_view finishedCalls[] = {"CardAuthenticateEx", "CardSignData",
                                              "CardRSADecrypt", "CardConstructDHAgreement"};

std::string shortened(std::string_view text, std::size_t longest = longestText) {
    return std::string(text.substr(0, longest));
}

}  // namespace

bool hasExitLine(std::string_view scope) {
    return std::find(std::begin(finishedCalls), std::end(finishedCalls), scope) !=
           std::end(finishedCalls);
}

std::string textOf(const LogLine& line) {
    return fmt::format("[{}] [{}] {}", line.time, line.scope, line.message);
}

LogReader::LogReader(std::size_t keptLines)
    : lines_([this](const LogLine& line) { take(line); }), keptLines_(keptLines) {}

void LogReader::finish() {
    lines_.finish();
    endGroup(true);
}

void LogReader::take(const LogLine& line) {
    lastTime_ = line.time;
    if (firstTime_.empty()) firstTime_ = line.time;
    if (line.scope == acquire && line.message == entryText) {
        beginAcquisition(line);
        return;
    }
    if (!current_) {
        // The log begins within an acquisition.
        current_.emplace();
        current_->begin = line.time;
        current_->isCut = true;
        current_->wasRead = true;
    }
    current_->end = line.time;
    if (line.message.starts_with(entryText)) {
        enter(line);
    } else if (line.message.starts_with(exitText)) {
        leave(line);
    } else {
        keepLine(line);
    }
    if (line.scope == acquire && (line.message == "Entering RegisterCard" ||
                                  line.message.starts_with("Another registercard"))) {
        current_->wasRead = true;
    } else if (line.scope == "DllMain" && line.message == "Started with reason code: 1") {
        ++processes_;
    } else if (line.scope == "DllMain" && line.message == "Started with reason code: 0") {
        if (processes_ > 0) --processes_;
        if (processes_ == 0) open_ = 0;
    }
    if (explanationOfMessage(line.message) != nullptr) {
        note({LogIncident::Kind::message, shortened(line.scope), 0, shortened(line.message),
              std::string(line.time), std::string(line.time), 1});
    }
}

void LogReader::enter(const LogLine& line) {
    keepCall(line);
    if (line.scope == release) {
        if (open_ > 0) --open_;
        return;
    }
    if (pending_.size() == mostPending) pending_.erase(pending_.begin());
    pending_.push_back({shortened(line.scope), std::string(line.time), begunCalls_});
}

void LogReader::leave(const LogLine& line) {
    const auto begun =
        std::find_if(pending_.rbegin(), pending_.rend(),
                     [&](const Pending& pending) { return pending.scope == line.scope; });
    LoggedCall* call = nullptr;
    if (begun != pending_.rend()) {
        call = keptCall(begun->call);
        pending_.erase(std::next(begun).base());
    } else if (line.scope == acquire && !calls_.empty() && calls_.front().scope == acquire) {
        call = &calls_.front();
    }
    const std::string_view digits = line.message.substr(exitText.size());
    std::uint32_t status = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), status, 16);
    if (error != std::errc()) return keepLine(line);
    if (call != nullptr) {
        call->status = status;
    } else {
        keepLine(line);
    }
    if (status == 0) {
        for (LogIncident& incident : current_->incidents) {
            if (incident.scope == line.scope) incident.isMadeGood = true;
        }
        return;
    }
    std::string_view rest = digits.substr(static_cast<std::size_t>(end - digits.data()));
    if (rest.starts_with('\'')) rest.remove_prefix(1);
    const auto kind =
        rest.starts_with(" or '0x") ? LogIncident::Kind::wrongPin : LogIncident::Kind::refusedCall;
    note({kind, shortened(line.scope), status, shortened(rest), std::string(line.time),
          std::string(line.time), 1});
}

void LogReader::beginAcquisition(const LogLine& line) {
    const bool isMixed = open_ > 0;
    if (current_ && isMixed) current_->isMixed = true;
    endGroup(false);
    current_.emplace();
    current_->begin = current_->end = line.time;
    current_->isMixed = isMixed;
    current_->number = ++acquisitions_;
    ++open_;
    forgetCalls();
    keepCall(line);
}

void LogReader::forgetCalls() {
    calls_.clear();
    droppedCalls_ = 0;
    linesOfCalls_ = 0;
}

LoggedCall* LogReader::keptCall(std::uint64_t number) {
    const std::uint64_t back = begunCalls_ - number;
    return back < calls_.size() ? &calls_[calls_.size() - 1 - static_cast<std::size_t>(back)]
                                : nullptr;
}

void LogReader::keepCall(const LogLine& line) {
    if (keptLines_ == 0) return;
    ++begunCalls_;
    ++linesOfCalls_;
    calls_.push_back({shortened(line.scope), {}, {}});
    while (linesOfCalls_ > keptLines_ && calls_.size() > 1) {
        linesOfCalls_ -= calls_.front().lines.size() + 1;
        calls_.pop_front();
        ++droppedCalls_;
    }
}

void LogReader::keepLine(const LogLine& line) {
    if (keptLines_ == 0) return;
    if (calls_.empty()) {
        ++begunCalls_;
        calls_.emplace_back();
    }
    // Its own call, or the innermost that is to end yet.
    LoggedCall* call = nullptr;
    for (auto pending = pending_.rbegin(); pending != pending_.rend(); ++pending) {
        LoggedCall* const kept = keptCall(pending->call);
        if (kept == nullptr) break;
        if (call == nullptr && hasExitLine(pending->scope)) call = kept;
        if (pending->scope != line.scope) continue;
        call = kept;
        break;
    }
    if (line.scope == acquire && calls_.front().scope == acquire) call = &calls_.front();
    if (call == nullptr) call = &calls_.back();
    // Calls that are still open are not dropped for newer ones, so that their lines have an end
    // too.
    if (call->lines.size() >= keptLines_ / 2 || linesOfCalls_ >= 2 * keptLines_) return;
    call->lines.push_back(shortened(textOf(line), longestShownLine));
    ++linesOfCalls_;
}

void LogReader::endGroup(bool isEndOfLog) {
    if (!current_) return;
    current_->isCut = current_->isCut || (isEndOfLog && open_ > 0);
    if (!current_->wasRead) {
        // What is not acquired is not released either.
        if (open_ > 0) --open_;
        note({LogIncident::Kind::failedAcquisition,
              std::string(acquire),
              0,
              {},
              current_->begin,
              current_->begin,
              1});
    }
    // In a mixed log a call may end in a later group.
    if (isEndOfLog || open_ == 0) {
        for (const Pending& pending : pending_) {
            if (!hasExitLine(pending.scope)) continue;
            note({LogIncident::Kind::unfinishedCall,
                  pending.scope,
                  0,
                  {},
                  pending.time,
                  pending.time,
                  1});
        }
        pending_.clear();
    }
    last_ = std::move(*current_);
    if (!lastIsWell()) {
        ++troubledCount_;
        if (troubled_.size() == mostAcquisitions) troubled_.pop_front();
        troubled_.push_back(last_);
    }
    current_.reset();
}

void LogReader::note(LogIncident incident) {
    auto& incidents = current_->incidents;
    const auto known =
        std::find_if(incidents.begin(), incidents.end(), [&](const LogIncident& earlier) {
            return earlier.kind == incident.kind && earlier.scope == incident.scope &&
                   earlier.status == incident.status && earlier.message == incident.message;
        });
    if (known != incidents.end()) {
        ++known->times;
        known->lastTime = incident.lastTime;
        known->isMadeGood = false;
        // The last one that happened stands last.
        std::rotate(known, std::next(known), incidents.end());
        return;
    }
    if (incidents.size() == mostIncidents) {
        incidents.erase(incidents.begin());
        ++current_->droppedIncidents;
    }
    incidents.push_back(std::move(incident));
}

}  // namespace cardhost::doctor
