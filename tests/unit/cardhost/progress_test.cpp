// The line that says what is being waited for.
#include <gtest/gtest.h>

#include "progress.h"

namespace cardhost {
namespace {

using namespace std::chrono_literals;

class ProgressLine : public ::testing::Test {
protected:
    std::string written;
    Progress::Clock::time_point now;
    Progress progress{[this](const std::string& text) { written += text; }, [this] { return now; }};

    void stepAfter(std::chrono::milliseconds time) {
        now += time;
        progress.step();
    }
};

TEST_F(ProgressLine, IsNotThereForWhatIsQuick) {
    progress.begin("CardAcquireContext");
    stepAfter(400ms);
    stepAfter(599ms);
    progress.end();
    EXPECT_EQ(written, "");
}

TEST_F(ProgressLine, ComesAfterASecondAndGoesAtTheEnd) {
    progress.begin("CardAcquireContext");
    stepAfter(500ms);
    stepAfter(500ms);
    EXPECT_EQ(written, "\r\033[KCardAcquireContext: 2 commands, 1.0 s");
    written.clear();
    stepAfter(100ms);
    EXPECT_EQ(written, "");
    stepAfter(150ms);
    EXPECT_EQ(written, "\r\033[KCardAcquireContext: 4 commands, 1.2 s");
    written.clear();
    progress.end();
    EXPECT_EQ(written, "\r\033[K");
    written.clear();
    progress.begin("CardReadFile cardid");
    stepAfter(10ms);
    progress.end();
    EXPECT_EQ(written, "");
}

TEST(Progress, IsOffWhereNobodyLooks) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(Progress(file, true).isOn());
    std::fclose(file);
    EXPECT_FALSE(Progress(stderr, false).isOn());
}

}  // namespace
}  // namespace cardhost
