// The system clock under the unit tests: std::time and std::chrono::system_clock, at a moment of
// the test's choice.
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

}  // namespace KelmoraID::testing
