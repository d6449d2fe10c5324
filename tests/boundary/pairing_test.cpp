// A service address that no port can be read from, as an acquisition meets it.
#include <cstdio>
#include <cstdlib>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;

// The first acquisition ends at the boundary and marks the process for good: it happens
// in a process of its own.
void acquireTwice() {
    static constexpr const char* alreadyRunning =
        "Another registercard action is already running. Do not attempt to pair card.";
    DriverLog log;
    PlatformSide card(3);
    writeSetting(Setting::serviceAddresses, "http://127.0.0.1:abc");
    log.clear();
    const DWORD first = card.acquire();
    const LogLines firstFile = log.file();
    const LogLines firstOutput = log.output();
    const DWORD second = card.acquire();
    const LogLines secondFile = log.file();
    const LogLines secondOutput = log.output();
    writeSetting(Setting::serviceAddresses, "");
    const bool asMeant = first == status::unexpected &&
                         firstFile == LogLines{{"CardAcquireContext", "Entering the function"},
                                               {"CardAcquireContext", "Entering RegisterCard"}} &&
                         firstOutput.empty() && second == 0 &&
                         secondFile == LogLines{{"CardAcquireContext", "Entering the function"},
                                                {"CardAcquireContext", alreadyRunning}} &&
                         secondOutput == LogLines{{"WARNING", alreadyRunning}} &&
                         !card.readFile("mscp", "cmapfile").bytes.empty();
    if (!asMeant) {
        std::fprintf(stderr, "%#lx, then %#lx:\n", static_cast<unsigned long>(first),
                     static_cast<unsigned long>(second));
        for (const LogLines* lines : {&firstFile, &firstOutput, &secondFile, &secondOutput}) {
            for (const LogLine& line : *lines)
                std::fprintf(stderr, "[%s] %s\n", line.scope.c_str(), line.message.c_str());
        }
    }
    card.release();
    std::fputs(asMeant ? "pairs no card any more" : "something else", stderr);
    std::fflush(stderr);
    std::_Exit(asMeant ? 0 : 1);
}

TEST(PairingDeathTest, OfAPortThatIsNoNumberEndsOneAcquisitionAndNoLaterOneTriesAgain) {
    EXPECT_EXIT(acquireTwice(), ::testing::ExitedWithCode(0), "pairs no card any more");
    writeSetting(Setting::serviceAddresses, "");  // Should the other process have stopped early.
}

}  // namespace
}  // namespace boundary
