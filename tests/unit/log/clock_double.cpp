#include "log/clock_double.h"

#include <ctime>
#include <optional>

namespace {

using std::chrono::system_clock;

std::optional<system_clock::time_point> stoppedAt;
bool hasLocalTime = true;

}  // namespace

// The linker leads the calls here (--wrap). The last name is that of system_clock::now.
extern "C" {
std::time_t __real_time(std::time_t* result);
std::time_t __wrap_time(std::time_t* result);
std::tm* __real_localtime_r(const std::time_t* moment, std::tm* result);
std::tm* __wrap_localtime_r(const std::time_t* moment, std::tm* result);
system_clock::rep __real__ZNSt6chrono3_V212system_clock3nowEv();
system_clock::rep __wrap__ZNSt6chrono3_V212system_clock3nowEv();

std::time_t __wrap_time(std::time_t* result) {
    if (!stoppedAt) return __real_time(result);
    const std::time_t moment = system_clock::to_time_t(*stoppedAt);
    if (result != nullptr) *result = moment;
    return moment;
}

std::tm* __wrap_localtime_r(const std::time_t* moment, std::tm* result) {
    return hasLocalTime ? __real_localtime_r(moment, result) : nullptr;
}

// A time_point comes back in the register of its count.
system_clock::rep __wrap__ZNSt6chrono3_V212system_clock3nowEv() {
    return stoppedAt ? stoppedAt->time_since_epoch().count()
                     : __real__ZNSt6chrono3_V212system_clock3nowEv();
}
}

namespace KelmoraID::testing {

StoppedClock::StoppedClock(system_clock::time_point moment) {
    stoppedAt = moment;
}

StoppedClock::~StoppedClock() {
    stoppedAt.reset();
}

NoLocalTime::NoLocalTime() {
    hasLocalTime = false;
}

NoLocalTime::~NoLocalTime() {
    hasLocalTime = true;
}

}  // namespace KelmoraID::testing
