// What stands around the messages of the two log channels: the time stamps, and that each line of
// standard output leaves the process's buffer at once.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform_side.h"

namespace boundary {
namespace {

using std::chrono::system_clock;

// An empty text for the machine's own.
void setTimeZone(const char* zone) {
#ifdef _WIN32
    _putenv((std::string("TZ=") + zone).c_str());
    _tzset();
#else
    if (*zone == 0) {
        unsetenv("TZ");
    } else {
        setenv("TZ", zone, 1);
    }
    tzset();
#endif
}

// Ahead of UTC by five and three quarters of an hour, so that neither is taken for the other.
struct TimeZone {
    TimeZone() { setTimeZone("TST-05:45"); }
    ~TimeZone() { setTimeZone(before.c_str()); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    const std::string before = std::getenv("TZ") == nullptr ? "" : std::getenv("TZ");
};

std::string formatted(const std::tm& time) {
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &time)};
}

std::string localText(std::time_t time) {
    return formatted(*std::localtime(&time));
}

// With the fraction in as many digits as the clock has.
std::string utcText(system_clock::time_point time) {
    using namespace std::chrono;
    const std::time_t seconds = system_clock::to_time_t(floor<std::chrono::seconds>(time));
    constexpr int width = hh_mm_ss<system_clock::duration>::fractional_width;
    const auto fraction = (time - floor<std::chrono::seconds>(time)).count();
    std::array<char, 32> digits{};
    std::snprintf(digits.data(), digits.size(), ".%0*lld", width, static_cast<long long>(fraction));
    return formatted(*std::gmtime(&seconds)) + digits.data();
}

// What stands between the first brackets.
std::string stampOf(const std::string& line) {
    return line.substr(1, line.find(']') - 1);
}

TEST(LogLines, OfTheFileHaveTheLocalTimeAndThoseOfStandardOutputThatOfUtc) {
    const TimeZone zone;
    { const KelmoraID::testing::LogCapture emptied; }
    const std::time_t localBefore = std::time(nullptr);
    const auto before = system_clock::now();
    ::testing::internal::CaptureStdout();
    acquireContextOfDriver()(nullptr, 0);
    const std::string output = ::testing::internal::GetCapturedStdout();
    const auto after = system_clock::now();
    const std::time_t localAfter = std::time(nullptr);
    const std::string file = stampOf(KelmoraID::testing::logFileContent());
    EXPECT_LE(localText(localBefore), file);
    EXPECT_LE(file, localText(localAfter));
    EXPECT_LE(utcText(before), stampOf(output));
    EXPECT_LE(stampOf(output), utcText(after));
}

}  // namespace
}  // namespace boundary
