// The companion application, scripted: its registry value, its library and the one function of it,
// and the window in front.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "platform/wide_text.h"
#include "platform/win32.h"

namespace KelmoraID::testing {

/// What the dialog was called with.
struct PromptCall {
    std::int32_t kind, second, third, reason;
    std::optional<std::string> title, text;  ///< no value for NULL
    std::int32_t attempts, eighth;
    std::string buffer;  ///< its 13 bytes as they stood

    bool operator==(const PromptCall&) const = default;
};

/// What the dialog does at one call.
struct PromptReply {
    std::string written;  ///< copied into the buffer with its terminator, unless it has 13 bytes
    std::int32_t result = 0;
};

/// Hooks the platform's calls from construction to destruction; one at a time, inside a
/// PlatformCallsGuard.
class DialogDouble {
public:
    DialogDouble();
    ~DialogDouble();
    DialogDouble(const DialogDouble&) = delete;
    DialogDouble& operator=(const DialogDouble&) = delete;

    // The settings; an application whose dialog works, and a desktop in front of it.
    std::optional<WideString> startCommand = WIDE_TEXT("C:\\Program Files\\Kelmora\\app.exe");
    bool libraryLoads = true;
    int loadsUntilFailure = -1;  ///< if not negative, so many loads succeed and the next fails
    bool functionFound = true;
    bool folderChanges = true;
    WideString windowClass = WIDE_TEXT("Chrome_WidgetWin_1");
    std::deque<PromptReply> replies;

    /// The library calls in order, with their arguments.
    std::vector<std::string> calls;
    std::vector<PromptCall> prompts;

    /// The whole calls of one test of the library in the standard folder.
    static std::vector<std::string> callsOfOneTest();

    static constexpr DWORD lastError = 126;
};

/// A string of which every element is ASCII, as wide text and back.
WideString wide(const std::string& text);
std::string narrow(const WideString& text);

}  // namespace KelmoraID::testing
