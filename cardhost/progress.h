// One line on a terminal that says what is being waited for, once that has taken longer than a
// second; it goes when the wait is over.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace cardhost {

class Progress {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    /// Nothing is ever written unless the stream is a terminal that can take the line back, and
    /// `isWanted`. A thread of its own writes where no command comes by.
    Progress(std::FILE* stream, bool isWanted);
    /// For tests: the terminal and the clock as given, and no thread.
    Progress(std::function<void(const std::string&)> write, Now now);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    bool isOn() const { return static_cast<bool>(write_); }

    /// Something begins that may take long.
    void begin(const std::string& what);
    /// It got on by one command.
    void step();
    /// It goes on; nothing else has happened.
    void wait();
    /// It is over.
    void end();

private:
    void show();
    void watch();

    std::mutex mutex_;
    std::function<void(const std::string&)> write_;
    Now now_;
    std::string what_;
    Clock::time_point start_;
    Clock::time_point shown_;
    unsigned steps_ = 0;
    bool isShown_ = false;
    bool isBegun_ = false;
    bool isEnding_ = false;
    bool hasThread_ = false;
    std::condition_variable ending_;
    std::thread watcher_;
};

}  // namespace cardhost
