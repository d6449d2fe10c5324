// One line on a terminal that says what is being waited for, once that has taken longer than a
// second; it goes when the wait is over.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

namespace cardhost {

class Progress {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    /// Nothing is ever written unless the stream is a terminal that can take the line back, and
    /// `isWanted`.
    Progress(std::FILE* stream, bool isWanted);
    /// For tests: the terminal and the clock as given.
    Progress(std::function<void(const std::string&)> write, Now now);

    bool isOn() const { return static_cast<bool>(write_); }

    /// Something begins that may take long.
    void begin(const std::string& what);
    /// It got on by one command.
    void step();
    /// It is over.
    void end();

private:
    std::function<void(const std::string&)> write_;
    Now now_;
    std::string what_;
    Clock::time_point start_;
    Clock::time_point shown_;
    unsigned steps_ = 0;
    bool isShown_ = false;
};

}  // namespace cardhost
