// The driver's log as a history of acquisitions. The log does not say which process a line comes
// from: where acquisitions overlap, the groups say that they may be mixed.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
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

class LogReader {
public:
    LogReader();
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
    /// Whether the last acquisition went without an incident.
    bool lastIsWell() const { return lastIsWell_; }

private:
    struct Pending {
        std::string scope;
        std::string time;
    };

    void take(const LogLine& line);
    void enter(const LogLine& line);
    void leave(const LogLine& line);
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
    bool lastIsWell_ = true;
};

}  // namespace cardhost::doctor
