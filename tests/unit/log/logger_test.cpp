#include "log/logger.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;

TEST(Logger, WritesTheScopeAndTheMessageAsTheyStand) {
    LogCapture log;
    logToFile("a scope", "");
    logToFile("CardReadFile", std::string("first"));
    EXPECT_EQ(log.file(), (LogLines{{"a scope", ""}, {"CardReadFile", "first"}}));
    EXPECT_EQ(log.output(), LogLines{});
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

}  // namespace
}  // namespace KelmoraID
