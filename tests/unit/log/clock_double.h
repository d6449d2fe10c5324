// The system clock under the unit tests: std::time and std::chrono::system_clock, at a moment of
// the test's choice, and its local form.
#pragma once

#include <chrono>

namespace KelmoraID::testing {

/// Stops both clocks at a moment until the object's end.
class StoppedClock {
public:
    explicit StoppedClock(std::chrono::system_clock::time_point moment);
    ~StoppedClock();
    StoppedClock(const StoppedClock&) = delete;
    StoppedClock& operator=(const StoppedClock&) = delete;
};

/// No moment has a local form until the object's end.
class NoLocalTime {
public:
    NoLocalTime();
    ~NoLocalTime();
    NoLocalTime(const NoLocalTime&) = delete;
    NoLocalTime& operator=(const NoLocalTime&) = delete;
};

}  // namespace KelmoraID::testing
