// The driver's log as a history of acquisitions. The log does not say which process a line comes
// from: where acquisitions overlap, the groups say that they may be mixed.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/log_lines.h"

namespace cardhost::doctor {

/// Something that went wrong, as often as it did.
struct LogIncident {
    enum class Kind {
        refusedCall,        // an entry point's exit line with a status other than 0
        wrongPin,           // the exit line that leaves open whether the PIN is blocked by now
        message,            // a line that tells of a failure by itself
        unfinishedCall,     // an entry line without its exit line
        failedAcquisition,  // a card that was not read
    };
    Kind kind = Kind::message;
    std::string scope;
    std::uint32_t status = 0;  // of a refused call
    std::string message;       // of a refused call: what stands behind the status
    std::string firstTime;
    std::string lastTime;
    std::uint64_t times = 0;
    bool isMadeGood = false;  // a later call of the same entry point came back well
};

struct LogAcquisition {
    std::uint64_t number = 0;  // in the log, from 1 on; 0 for what stands ahead of the first
    std::string begin;
    std::string end;
    bool isMixed = false;  // others were open at the same time
    bool isCut = false;    // the log begins or ends within it
    bool wasRead = false;  // the driver came past the reading of the card
    std::vector<LogIncident> incidents;
    std::uint64_t droppedIncidents = 0;  // of further kinds than are kept
};

/// A call of the last acquisition, with the lines of its scope.
struct LoggedCall {
    std::string scope;  // empty for what stands ahead of the first call
    std::vector<std::string> lines;
    std::optional<std::uint32_t> status;  // where the log has its exit line
};

/// Whether the entry point writes an exit line on every way out that a user brings about.
bool hasExitLine(std::string_view scope);

/// A line as the log has it.
std::string textOf(const LogLine& line);

class LogReader {
public:
    /// Of the calls of the last acquisition as many are kept as have this many lines.
    explicit LogReader(std::size_t keptLines = 0);
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    /// Pieces of the file in order, then the end.
    void add(ByteView piece) { lines_.add(piece); }
    void finish();

    /// The last acquisitions in which something went wrong, in order.
    const std::deque<LogAcquisition>& troubled() const { return troubled_; }
    std::uint64_t acquisitions() const { return acquisitions_; }
    std::uint64_t troubledCount() const { return troubledCount_; }
    std::uint64_t lines() const { return lines_.lines(); }
    std::uint64_t strays() const { return lines_.strays(); }
    const std::string& firstTime() const { return firstTime_; }
    const std::string& lastTime() const { return lastTime_; }
    /// The last acquisition, or what stands ahead of the first; as new where there is none.
    const LogAcquisition& last() const { return last_; }
    /// Whether the last acquisition went without an incident.
    bool lastIsWell() const { return last_.incidents.empty(); }
    /// The last of its calls, in order, and how many there were before these.
    const std::deque<LoggedCall>& calls() const { return calls_; }
    std::uint64_t droppedCalls() const { return droppedCalls_; }

private:
    struct Pending {
        std::string scope;
        std::string time;
        std::uint64_t call;  // its number among all that were begun
    };

    void take(const LogLine& line);
    void enter(const LogLine& line);
    void leave(const LogLine& line);
    void keepCall(const LogLine& line);
    void keepLine(const LogLine& line);
    void forgetCalls();
    LoggedCall* keptCall(std::uint64_t number);
    void beginAcquisition(const LogLine& line);
    void endGroup(bool isEndOfLog);
    void note(LogIncident incident);

    LogLines lines_;
    std::deque<LogAcquisition> troubled_;
    std::optional<LogAcquisition> current_;
    std::vector<Pending> pending_;
    std::uint64_t open_ = 0;       // acquisitions without their CardDeleteContext
    std::uint64_t processes_ = 0;  // that loaded the driver and have not ended
    std::uint64_t acquisitions_ = 0;
    std::uint64_t troubledCount_ = 0;
    std::string firstTime_;
    std::string lastTime_;
    LogAcquisition last_;
    std::size_t keptLines_;
    std::size_t linesOfCalls_ = 0;
    std::deque<LoggedCall> calls_;
    std::uint64_t droppedCalls_ = 0;
    std::uint64_t begunCalls_ = 0;  // of all acquisitions; the last one is calls_.back()
};

}  // namespace cardhost::doctor
