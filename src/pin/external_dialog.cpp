#include "pin/external_dialog.h"

#include <fmt/format.h>

#include <array>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "log/logger.h"
#include "pin/dialog_library.h"
#include "registry/registry.h"
#include "text/text_conversion.h"
#include "text/text_lists.h"

namespace KelmoraID {
namespace {

constexpr const char* availabilityScope = "isExternalPinDialogAvailable";
constexpr const char* libraryFileName = "CodeEntryLibrary.dll";
constexpr const char* logonWindowClass = "LogonUI Logon Window";

// The companion application's start-up command; empty when the registry has none.
WideString companionStartCommand() {
    try {
        const WideString value = utf8ToWide(companionRunValue);
        // Without a name the registry would give the key's unnamed value, another program's.
        if (value.c_str()[0] == 0) return {};
        return readRegistryString(WideString(companionRunKey), value);
    } catch (const std::exception& exception) {
        logError(fmt::format(
            "Could not read Kelmora ID installation path ('{}') from registry. Exception: {}",
            companionRunValue, exception.what()));
        return {};
    }
}

struct DialogLocation {
    WideString folder;
    WideString library;
};

// The wide text alone: the conversion leaves a terminator in its result.
WideString wideWithoutTerminator(const std::string& text) {
    return utf8ToWide(text).c_str();
}

// The folder is what stands before the last backslash. No value for a command without one.
// quirk: command-not-parsed. Quotation marks and arguments are not understood.
std::optional<DialogLocation> locationOf(const WideString& startCommand) {
    std::vector<std::string> parts = splitString(wideToUtf8(startCommand).c_str(), '\\');
    if (parts.size() < 2) return std::nullopt;
    parts.pop_back();
    DialogLocation location;
    location.folder = wideWithoutTerminator(joinStrings(parts, "\\"));
    parts.emplace_back(libraryFileName);
    location.library = wideWithoutTerminator(joinStrings(parts, "\\"));
    return location;
}

// The class name of the window in front in UTF-8; no value if it has none or does not convert.
std::optional<std::string> foregroundWindowClass() {
    std::array<WCHAR, 256> name{};
    const int count =
        GetClassNameW(GetForegroundWindow(), name.data(), static_cast<int>(name.size()));
    name.back() = 0;
    if (count <= 0 || name.front() == 0) return std::nullopt;
    const int size = WideCharToMultiByte(CP_UTF8, 0, name.data(), -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return std::nullopt;
    // One more than asked for, so that the text ends whatever the platform writes.
    const std::unique_ptr<char[]> text(
        new (std::nothrow) char[static_cast<std::size_t>(size) + 1]());
    if (!text ||
        WideCharToMultiByte(CP_UTF8, 0, name.data(), -1, text.get(), size, nullptr, nullptr) <= 0) {
        return std::nullopt;
    }
    return text.get();
}

}  // namespace

bool isExternalPinDialogAvailable(WideString& path) {
    const WideString startCommand = companionStartCommand();
    if (startCommand.empty()) return false;
    const std::optional<DialogLocation> location = locationOf(startCommand);
    DialogLibrary library;
    if (location) {
        library.load(location->library);
    } else {
        // A bare file name would be looked for along the search path: it counts as not found.
        SetLastError(static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    }
    if (!library.isLoaded()) {
        DialogLibrary::logFailedLoad(availabilityScope);
        return false;
    }
    library.free();  // The load was a test only.
    // quirk: process-moves. There it stays: the dialog's library looks for its files from here.
    if (SetCurrentDirectoryW(location->folder.c_str()) == FALSE) {
        logToFile(availabilityScope, "Error: Changing directory failed.");
        return false;
    }
    path = location->library;
    return true;
}

bool isLoginWindowHandle() {
    const std::optional<std::string> windowClass = foregroundWindowClass();
    if (!windowClass) {
        logToFile("isLoginWindowHandle", "Class name conversion failed.");
        return true;  // In doubt it is the logon screen, and the platform's prompt serves.
    }
    return *windowClass == logonWindowClass;
}

}  // namespace KelmoraID
