// What window is in front decides who asks for the PIN. Natively alone, where each condition on the
// window's class name can be had by itself.
#include <algorithm>
#include <cstring>

#include "desktop.h"
#include "platform_side.h"
#include "support/platform_calls.h"

namespace boundary {
namespace {

using KelmoraID::testing::LogLines;
using KelmoraID::testing::platformCalls;

struct ClassName {
    const char* what;
    std::u16string buffer;  ///< as the platform leaves it, zeros behind it
    int count;
    bool isAskedByDialog;
    bool isTold;  ///< that there is no class name
};

TEST(WindowInFront, DecidesWhoAsksForThePin) {
    const ClassName rows[] = {
        {"an ordinary window", u"Ordinary Window", 15, true, false},
        {"the logon screen", u"LogonUI Logon Window", 20, false, false},
        {"a longer name", u"LogonUI Logon Window ", 21, true, false},
        {"a shorter name", u"LogonUI Logon Windo", 19, true, false},
        {"other letters", u"logonUI Logon Window", 20, true, false},
        {"a name and no length", u"Ordinary Window", 0, false, true},
        {"a name and a negative length", u"Ordinary Window", -1, false, true},
        {"a name and a length of one", u"O", 1, true, false},
        {"a length and no name", std::u16string(u"\0Window", 7), 7, false, true},
        {"a name without an end", std::u16string(256, u'x'), 256, true, false},
    };
    Desktop desktop;
    ASSERT_NE(desktop.script, nullptr);
    PlatformSide card(5);
    card.acquireOrFail();
    for (const ClassName& row : rows) {
        platformCalls().GetClassNameW = [&row](HWND, LPWSTR name, int room) -> int {
            EXPECT_EQ(room, 256);
            std::fill_n(name, room, u'\0');
            std::copy(row.buffer.begin(), row.buffer.end(), name);
            return row.count;
        };
        DriverLog log;
        const Answer answer = card.property(WIDE_TEXT("PIN Information"), 1);
        LogLines file = log.file();
        PIN_INFO info{};
        ASSERT_EQ(answer.bytes.size(), sizeof(info)) << row.what;
        std::memcpy(&info, answer.bytes.data(), sizeof(info));
        EXPECT_EQ(info.PinType, row.isAskedByDialog ? ExternalPinType : AlphaNumericPinType)
            << row.what;
        std::erase_if(file, [](const auto& line) { return line.scope != "isLoginWindowHandle"; });
        LogLines told;
        if (row.isTold) told = {{"isLoginWindowHandle", "Class name conversion failed."}};
        EXPECT_EQ(file, told) << row.what;
    }
}

}  // namespace
}  // namespace boundary
