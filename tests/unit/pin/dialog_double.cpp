#include "pin/dialog_double.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/platform_calls.h"

namespace KelmoraID::testing {
namespace {

DialogDouble* current = nullptr;
int module = 0;
int window = 0;

std::int32_t __cdecl promptCodeEntryDefault(std::int32_t kind, std::int32_t second,
                                            std::int32_t third, std::int32_t reason,
                                            const char* title, const char* text,
                                            std::int32_t attempts, std::int32_t eighth,
                                            char* buffer) {
    const auto optional = [](const char* value) {
        return value == nullptr ? std::nullopt : std::optional<std::string>(value);
    };
    current->prompts.push_back({kind, second, third, reason, optional(title), optional(text),
                                attempts, eighth, std::string(buffer, 13)});
    if (current->replies.empty()) {
        ADD_FAILURE() << "the dialog was shown once too often";
        return 1;
    }
    const PromptReply reply = current->replies.front();
    current->replies.pop_front();
    if (!reply.written.empty()) {
        std::memcpy(buffer, reply.written.c_str(),
                    std::min<std::size_t>(reply.written.size() + 1, 13));
    }
    return reply.result;
}

}  // namespace

WideString wide(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string narrow(const WideString& text) {
    std::string result;
    for (const WCHAR unit : text) result += static_cast<char>(unit);
    return result;
}

std::vector<std::string> DialogDouble::callsOfOneTest() {
    return {"load C:\\Program Files\\Kelmora\\CodeEntryLibrary.dll, 8", "free",
            "folder C:\\Program Files\\Kelmora"};
}

DialogDouble::DialogDouble() {
    current = this;
    PlatformCalls& hooks = platformCalls();
    hooks.RegGetValueW = [this](HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD,
                                PVOID data, LPDWORD size) -> LSTATUS {
        EXPECT_EQ(key, HKEY_LOCAL_MACHINE);
        EXPECT_EQ(narrow(subKey), "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Run");
        EXPECT_EQ(narrow(value), "Kelmora ID");
        EXPECT_EQ(flags, RRF_RT_REG_SZ);
        if (!startCommand) return ERROR_FILE_NOT_FOUND;
        const auto needed = static_cast<DWORD>((startCommand->size() + 1) * sizeof(WCHAR));
        const DWORD given = *size;
        *size = needed;
        if (given < needed) return ERROR_MORE_DATA;
        std::memcpy(data, startCommand->c_str(), needed);
        return ERROR_SUCCESS;
    };
    hooks.LoadLibraryExW = [this](LPCWSTR path, HANDLE file, DWORD flags) -> HMODULE {
        EXPECT_EQ(file, nullptr);
        calls.push_back("load " + narrow(path) + ", " + std::to_string(flags));
        // The platform finds no library under an empty name, and no folder below.
        if (*path == 0 || !libraryLoads || loadsUntilFailure == 0) return nullptr;
        if (loadsUntilFailure > 0) --loadsUntilFailure;
        return &module;
    };
    hooks.GetProcAddress = [this](HMODULE handle, LPCSTR name) -> FARPROC {
        EXPECT_EQ(handle, &module);
        calls.push_back(std::string("find ") + name);
        if (!functionFound) return nullptr;
        return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&promptCodeEntryDefault));
    };
    hooks.FreeLibrary = [this](HMODULE handle) -> BOOL {
        EXPECT_EQ(handle, &module);
        calls.emplace_back("free");
        return TRUE;
    };
    hooks.SetCurrentDirectoryW = [this](LPCWSTR folder) -> BOOL {
        calls.push_back("folder " + narrow(folder));
        return *folder != 0 && folderChanges ? TRUE : FALSE;
    };
    hooks.GetLastError = [] { return lastError; };
    hooks.GetForegroundWindow = [] { return static_cast<HWND>(&window); };
    hooks.GetClassNameW = [this](HWND handle, LPWSTR name, int count) -> int {
        EXPECT_EQ(handle, &window);
        EXPECT_EQ(count, 256);
        const std::size_t length = std::min<std::size_t>(windowClass.size(), 255);
        std::copy_n(windowClass.begin(), length, name);
        name[length] = 0;
        return static_cast<int>(length);
    };
}

DialogDouble::~DialogDouble() {
    EXPECT_TRUE(replies.empty()) << "the dialog was shown too rarely";
    current = nullptr;
}

}  // namespace KelmoraID::testing
