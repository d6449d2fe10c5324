#include "frame/dll_main.cpp"  // NOLINT(bugprone-suspicious-include): its one function has the name of the loader's

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace KelmoraID {
namespace {

using namespace testing;

TEST(DllMainTest, LogsEveryReasonCodeAndReturnsOne) {
    LogCapture log;
    for (DWORD reason = 0; reason < 4; ++reason) EXPECT_EQ(DllMain(nullptr, reason, nullptr), 1);
    EXPECT_EQ(log.file(), (LogLines{{"DllMain", "Started with reason code: 0"},
                                    {"DllMain", "Started with reason code: 1"},
                                    {"DllMain", "Started with reason code: 2"},
                                    {"DllMain", "Started with reason code: 3"}}));
    EXPECT_EQ(log.output(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
