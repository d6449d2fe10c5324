#include "log/logger.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "log/clock_double.h"
#include "platform/fixed_paths.h"
#include "support/log_capture.h"

namespace KelmoraID {
namespace {

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using testing::LogCapture;
using testing::logFileContent;
using testing::LogLines;
using testing::StoppedClock;

// A time zone of the test's choice, until the object's end.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* before = std::getenv("TZ")) before_ = before;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        if (before_.empty()) {
            unsetenv("TZ");
        } else {
            setenv("TZ", before_.c_str(), 1);
        }
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    std::string before_;
};

// The C locale of a host process whose numbers have a comma, until the object's end. It is made of
// its source in the tests' own folder, since a machine need not have one.
class CommaLocale {
public:
    CommaLocale() {
        const fs::path folder = fs::path(testing::testFolder()) / "locales";
        fs::create_directories(folder);
        std::ofstream(folder / "source") << "LC_NUMERIC\ndecimal_point \"<U002C>\"\n"
                                            "thousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n";
        std::ofstream characters(folder / "characters");
        characters << "<code_set_name> ANSI_X3.4-1968\n<escape_char> /\nCHARMAP\n";
        for (int code = 0; code < 128; ++code) {
            characters << fmt::format("<U{0:04X}> /x{0:02x} .\n", code);
        }
        characters << "END CHARMAP\n";
        characters.close();
        // It warns about the categories that are not there, and makes the one that is.
        const std::string make = fmt::format(
            "cd '{}' && localedef --no-archive -c -i ./source -f ./characters ./comma 2>errors",
            folder.string());
        made_ = std::system(make.c_str()) != -1;
        setenv("LOCPATH", folder.c_str(), 1);
        made_ = made_ && std::setlocale(LC_NUMERIC, "comma") != nullptr;
    }
    ~CommaLocale() {
        std::setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    bool made() const { return made_; }

private:
    bool made_;
};

const fs::path& logFile() {
    static const fs::path path = logFilePath();
    return path;
}

void writeLogFile(const std::string& content) {
    std::ofstream(logFile()) << content;
}

TEST(Logger, WritesTheScopeAndTheMessageAsTheyStand) {
    LogCapture log;
    logToFile("a scope", "");
    logToFile("CardReadFile", std::string("first"));
    logToFile("", "%s %n {}");
    EXPECT_EQ(log.file(), (LogLines{{"a scope", ""}, {"CardReadFile", "first"}, {"", "%s %n {}"}}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(Logger, EndsAMessageOfTheFileAtItsFirstNulAndOneOfStandardOutputAtItsEnd) {
    LogCapture log;
    const std::string message("before\0after", 12);
    logToFile("scope", message);
    logInfo(message);
    EXPECT_EQ(log.file(), (LogLines{{"scope", "before"}}));
    EXPECT_EQ(log.output(), (LogLines{{"INFO", message}}));
}

TEST(Logger, WritesTheFourLevelsToStandardOutput) {
    LogCapture log;
    logInfo("a");
    logDebug("b");
    logWarning("c");
    logError("d");
    logLevel("OWN", "e");
    logDropped("f");
    EXPECT_EQ(
        log.output(),
        (LogLines{{"INFO", "a"}, {"DEBUG", "b"}, {"WARNING", "c"}, {"ERROR", "d"}, {"OWN", "e"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(Logger, StampsTheFileWithLocalTimeAndStandardOutputWithUtc) {
    using namespace std::chrono;
    const TimeZone zone("TST-05:45");  // ahead of UTC by that much
    fs::create_directories(logFile().parent_path());
    fs::remove(logFile());
    {
        // 2009-02-13 23:31:30 in UTC, and 42 of the clock's smallest units.
        const StoppedClock clock(system_clock::time_point(seconds(1'234'567'890)) +
                                 system_clock::duration(42));
        logToFile("scope", "message");
        ::testing::internal::CaptureStdout();
        logInfo("message");
    }
    EXPECT_EQ(logFileContent(), "[2009-02-14 05:16:30] [scope] message\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "[2009-02-13 23:31:30.000000042] [INFO] message\n");
}

TEST(Logger, HasTheSameSignAheadOfTheFractionWhateverTheCLocale) {
    using namespace std::chrono;
    const CommaLocale locale;
    ASSERT_TRUE(locale.made());
    char number[8];
    std::snprintf(number, sizeof(number), "%.1f", 1.5);
    ASSERT_STREQ(number, "1,5");
    const StoppedClock clock(system_clock::time_point(seconds(1'234'567'890)));
    ::testing::internal::CaptureStdout();
    logInfo("message");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "[2009-02-13 23:31:30.000000000] [INFO] message\n");
}

TEST(Logger, LeavesTheStampEmptyWhereATimeHasNoLocalForm) {
    LogCapture log;
    fs::remove(logFile());
    {
        const testing::NoLocalTime clock;
        logToFile("scope", "message");
    }
    EXPECT_EQ(logFileContent(), "[] [scope] message\n");
}

// Standard output is that of the host process, where nobody else empties its buffer.
TEST(Logger, FlushesEachLineOfStandardOutput) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
            logDebug("told at once");
            _exit(0);  // A buffer is lost here.
        },
        ExitedWithCode(0), R"(^\[[^]]+\] \[DEBUG\] told at once)");
}

TEST(Logger, GoesWithoutALogWhereTheFolderIsMissing) {
    LogCapture log;
    fs::remove_all(logFile().parent_path());
    logToFile("scope", "message");
    EXPECT_FALSE(fs::exists(logFile().parent_path())) << "the folder is never created";
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(Logger, GoesWithoutALogWhereSomethingElseHasItsName) {
    LogCapture log;
    fs::create_directory(logFile());
    logToFile("scope", "message");
    EXPECT_TRUE(fs::is_directory(logFile()));
    EXPECT_EQ(log.output(), LogLines{});
    fs::remove(logFile());
}

TEST(Logger, LeavesAReadOnlyFileAsItIsWithoutAReport) {
    fs::create_directories(logFile().parent_path());
    writeLogFile("an earlier line\n");
    fs::permissions(testing::testFolder(), fs::perms(0755));
    fs::permissions(logFile(), fs::perms(0444));
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            // The superuser may write to any file: let somebody else try.
            if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
            if (std::fopen(logFilePath(), "a") != nullptr || errno != EACCES) _exit(3);
            logToFile("scope", "message");
            _exit(0);
        },
        ExitedWithCode(0), "^$");
    EXPECT_EQ(logFileContent(), "an earlier line\n");
    fs::remove(logFile());
}

TEST(Logger, OpensTheFileAfreshForEachLine) {
    LogCapture log;
    logToFile("scope", "first");
    fs::remove(logFile());
    logToFile("scope", "second");
    EXPECT_EQ(log.file(), (LogLines{{"scope", "second"}}));
    writeLogFile("");
    logToFile("scope", "third");
    EXPECT_NE(logFileContent().find("[scope] third\n"), std::string::npos);
}

}  // namespace
}  // namespace KelmoraID
