#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <cstdlib>
#include <iostream>
#include <utility>

#include <fmt/format.h>

#include "bytes.h"
#include "exit_codes.h"
#include "os_windows.h"
#include "platform/win32.h"
// shellapi.h needs what windows.h declares.
#include <shellapi.h>

namespace cardhost::os {

namespace {

std::string shown(const std::filesystem::path& path) {
    return utf8(path.native());
}

std::filesystem::path systemFolder() {
    WCHAR folder[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    return std::basic_string<WCHAR>(folder, length);
}

/// Echo off for the life of the object.
class SilentTerminal {
public:
    explicit SilentTerminal(HANDLE input) : input_(input) {
        isChanged_ = GetConsoleMode(input_, &before_) != 0 &&
                     SetConsoleMode(input_, before_ & ~static_cast<DWORD>(ENABLE_ECHO_INPUT)) != 0;
    }
    ~SilentTerminal() {
        if (isChanged_) SetConsoleMode(input_, before_);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    bool isTerminal() const { return isChanged_; }

private:
    HANDLE input_;
    DWORD before_ = 0;
    bool isChanged_ = false;
};

}  // namespace

std::string reasonOf(DWORD error) {
    WCHAR text[256] = {};
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                       0, text, static_cast<DWORD>(std::size(text)), nullptr);
    std::string reason = utf8(std::basic_string_view<WCHAR>(text, length));
    // The words of the system are a sentence; here they become part of one.
    while (!reason.empty() &&
           (static_cast<unsigned char>(reason.back()) <= ' ' || reason.back() == '.')) {
        reason.pop_back();
    }
    if (!reason.empty()) return reason;
    // Codes of 32 bits are known by their hexadecimal digits.
    return error < 0x80000000 ? fmt::format("error {}", error) : fmt::format("error {:#x}", error);
}

Library::Library(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file)),
      handle_(LoadLibraryExW(file_.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
    if (handle_ == nullptr) {
        throw Failure(ExitCode::notFound,
                      fmt::format("cannot load {}: {}", shown(file_), reasonOf(GetLastError())));
    }
}

Library::~Library() {
    if (handle_ != nullptr) FreeLibrary(static_cast<HMODULE>(handle_));
}

Library::Library(Library&& other) noexcept
    : file_(std::move(other.file_)), handle_(std::exchange(other.handle_, nullptr)) {}

void* Library::find(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

void* Library::require(const char* name) const {
    void* address = find(name);
    if (address == nullptr) {
        throw Failure(ExitCode::notFound, fmt::format("{} does not export {}", shown(file_), name));
    }
    return address;
}

std::filesystem::path seamWinscard(const std::filesystem::path& programFolder) {
    return programFolder / "virtual-card" / "winscard.dll";
}

std::filesystem::path realWinscard(const std::filesystem::path&) {
    return systemFolder() / "winscard.dll";
}

std::filesystem::path usualDriver() {
    constexpr const char* name = "kelmora-id-minidriver.dll";
    std::filesystem::path beside = programFolder() / name;
    std::error_code ignored;
    return std::filesystem::exists(beside, ignored) ? beside : systemFolder() / name;
}

std::filesystem::path programFolder() {
    std::basic_string<WCHAR> program(32768, WCHAR{0});
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    return std::filesystem::path(program).parent_path();
}

// The arguments of main are in the machine's code page; those of the whole command line are UTF-16.
std::vector<std::string> arguments(int, char**) {
    int count = 0;
    LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> result;
    for (int i = 1; words != nullptr && i < count; ++i) result.push_back(utf8(words[i]));
    LocalFree(words);
    return result;
}

std::filesystem::path pathOf(const std::string& text) {
    return std::filesystem::path(wide(text));
}

std::optional<std::string> askWithoutEcho(const std::string& prompt) {
    const SilentTerminal silent(GetStdHandle(STD_INPUT_HANDLE));
    if (silent.isTerminal()) fmt::print(stderr, "{}", prompt);
    std::string line;
    const bool isRead = static_cast<bool>(std::getline(std::cin, line));
    if (silent.isTerminal()) fmt::print(stderr, "\n");
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return isRead ? std::optional(line) : std::nullopt;
}

std::filesystem::path driverLogFile() {
    return "C:\\Program Files\\Kelmora-ID-minidriver\\Log\\Kelmora-ID-minidriver.log";
}

bool isTerminal(std::FILE* stream) {
    return _isatty(_fileno(stream)) != 0;
}

bool takesEscapeSequences(std::FILE* stream) {
    if (!isTerminal(stream)) return false;
    constexpr DWORD escapeSequences = 4;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
    const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) != 0 &&
           SetConsoleMode(console, mode | escapeSequences) != 0;
}

std::FILE* separateReport() {
    SetConsoleOutputCP(CP_UTF8);
    std::fflush(stdout);
    const int report = _dup(_fileno(stdout));
    if (report < 0) return stdout;
    std::FILE* stream = _fdopen(report, "w");
    if (stream == nullptr) return stdout;
    int nothing = -1;
    if (_sopen_s(&nothing, "NUL", _O_WRONLY, _SH_DENYNO, _S_IWRITE) != 0) {
        _close(_fileno(stdout));
        SetStdHandle(STD_OUTPUT_HANDLE, nullptr);
        return stream;
    }
    _dup2(nothing, _fileno(stdout));
    _close(nothing);
    // A minidriver has its own C library, which takes the handle from here.
    SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stdout))));
    return stream;
}

void showOtherOutput() {
    _dup2(_fileno(stderr), _fileno(stdout));
    SetStdHandle(STD_OUTPUT_HANDLE, GetStdHandle(STD_ERROR_HANDLE));
}

}  // namespace cardhost::os
