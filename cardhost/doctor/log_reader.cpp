#include "doctor/log_reader.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

#include "doctor/log_explanation.h"

namespace cardhost::doctor {

namespace {

constexpr std::size_t mostAcquisitions = 10;
constexpr std::size_t mostIncidents = 20;
constexpr std::size_t mostPending = 100;
constexpr std::size_t longestText = 200;

constexpr std::string_view entryText = "Entering the function";
constexpr std::string_view exitText = "Exiting the function, with status code: '0x";
constexpr std::string_view acquire = "CardAcquireContext";
constexpr std::string_view release = "CardDeleteContext";

/// Entry points with an exit line on every way out that a user brings about.
constexpr std::string_view finishedCalls[] = {"CardAuthenticateEx", "CardSignData",
                                              "CardRSADecrypt", "CardConstructDHAgreement"};

std::string shortened(std::string_view text) {
    return std::string(text.substr(0, longestText));
}

bool isExpectedToFinish(const std::string& scope) {
    return std::find(std::begin(finishedCalls), std::end(finishedCalls), scope) !=
           std::end(finishedCalls);
}

}  // namespace

LogReader::LogReader() : lines_([this](const LogLine& line) { take(line); }) {}

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
    } else if (line.scope == acquire && (line.message == "Entering RegisterCard" ||
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
    if (line.scope == release) {
        if (open_ > 0) --open_;
        return;
    }
    if (pending_.size() == mostPending) pending_.erase(pending_.begin());
    pending_.push_back({shortened(line.scope), std::string(line.time)});
}

void LogReader::leave(const LogLine& line) {
    const auto begun =
        std::find_if(pending_.rbegin(), pending_.rend(),
                     [&](const Pending& pending) { return pending.scope == line.scope; });
    if (begun != pending_.rend()) pending_.erase(std::next(begun).base());
    const std::string_view digits = line.message.substr(exitText.size());
    std::uint32_t status = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), status, 16);
    if (error != std::errc() || status == 0) return;
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
            if (!isExpectedToFinish(pending.scope)) continue;
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
    lastIsWell_ = current_->incidents.empty();
    if (!lastIsWell_) {
        ++troubledCount_;
        if (troubled_.size() == mostAcquisitions) troubled_.pop_front();
        troubled_.push_back(std::move(*current_));
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
