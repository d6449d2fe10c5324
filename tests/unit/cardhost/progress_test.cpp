// The line that says what is being waited for.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "os.h"
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

TEST_F(ProgressLine, GoesOnWhereNoCommandComesBy) {
    progress.begin("CardAcquireContext");
    stepAfter(10ms);
    now += 900ms;
    progress.wait();
    EXPECT_EQ(written, "");
    now += 500ms;
    progress.wait();
    EXPECT_EQ(written, "\r\033[KCardAcquireContext: 1 command, 1.4 s");
    written.clear();
    progress.end();
    now += 2s;
    progress.wait();
    EXPECT_EQ(written, "\r\033[K");
}

TEST(Progress, IsOffWhereNobodyLooks) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(Progress(file, true).isOn());
    std::fclose(file);
    EXPECT_FALSE(Progress(stderr, false).isOn());
}

/// A terminal that nobody looks at.
class PseudoTerminal {
public:
    PseudoTerminal() : main_(posix_openpt(O_RDWR | O_NOCTTY)) {
        EXPECT_EQ(grantpt(main_), 0);
        EXPECT_EQ(unlockpt(main_), 0);
        stream_ = fdopen(open(ptsname(main_), O_RDWR | O_NOCTTY), "w");
        EXPECT_NE(stream_, nullptr);
    }
    ~PseudoTerminal() {
        std::fclose(stream_);
        close(main_);
    }
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    std::FILE* stream() const { return stream_; }

private:
    int main_;
    std::FILE* stream_;
};

/// The environment's TERM, put back at the end.
class TerminalName {
public:
    explicit TerminalName(const char* name) {
        if (const char* before = std::getenv("TERM")) before_ = before;
        name == nullptr ? unsetenv("TERM") : setenv("TERM", name, 1);
    }
    ~TerminalName() { before_.empty() ? unsetenv("TERM") : setenv("TERM", before_.c_str(), 1); }
    TerminalName(const TerminalName&) = delete;
    TerminalName& operator=(const TerminalName&) = delete;

private:
    std::string before_;
};

TEST(Progress, IsForATerminalThatTakesItsLineBack) {
    const PseudoTerminal terminal;
    for (const auto& [name, isOn] : {std::pair<const char*, bool>{"xterm-256color", true},
                                     {"vt100", true},
                                     {"dumb", false},
                                     {"", false},
                                     {nullptr, false}}) {
        const TerminalName set(name);
        EXPECT_EQ(os::takesEscapeSequences(terminal.stream()), isOn) << (name ? name : "none");
        EXPECT_EQ(Progress(terminal.stream(), true).isOn(), isOn) << (name ? name : "none");
        EXPECT_FALSE(Progress(terminal.stream(), false).isOn());
    }
}

}  // namespace
}  // namespace cardhost
