#include <dlfcn.h>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "exit_codes.h"
#include "os.h"

namespace cardhost::os {

namespace {

/// Echo off for the life of the object.
class SilentTerminal {
public:
    SilentTerminal() {
        if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        isChanged_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
    }
    ~SilentTerminal() {
        if (isChanged_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    termios before_{};
    bool isChanged_ = false;
};

}  // namespace

Library::Library(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file)), handle_(dlopen(file_.c_str(), RTLD_NOW)) {
    if (handle_ == nullptr) {
        throw Failure(ExitCode::notFound,
                      fmt::format("cannot load {}: {}", file_.string(), dlerror()));
    }
}

Library::~Library() {
    if (handle_ != nullptr) dlclose(handle_);
}

Library::Library(Library&& other) noexcept
    : file_(std::move(other.file_)), handle_(std::exchange(other.handle_, nullptr)) {}

void* Library::find(const char* name) const {
    return dlsym(handle_, name);
}

void* Library::require(const char* name) const {
    void* address = find(name);
    if (address == nullptr) {
        throw Failure(ExitCode::notFound,
                      fmt::format("{} does not export {}", file_.string(), name));
    }
    return address;
}

std::filesystem::path usualDriver() {
    return programFolder() / "libkelmora-id-minidriver.so";
}

std::filesystem::path seamWinscard(const std::filesystem::path& programFolder) {
    return programFolder / "virtual-card" / "libkelmora-winscard.so";
}

std::filesystem::path realWinscard(const std::filesystem::path& driverFolder) {
    return driverFolder / "libkelmora-winscard.so";
}

std::filesystem::path programFolder() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::current_path() : program.parent_path();
}

std::vector<std::string> arguments(int argc, char** argv) {
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

std::filesystem::path pathOf(const std::string& text) {
    return text;
}

std::optional<std::string> askWithoutEcho(const std::string& prompt) {
    const bool isTerminal = isatty(STDIN_FILENO) == 1;
    if (isTerminal) fmt::print(stderr, "{}", prompt);
    const SilentTerminal silent;
    std::string line;
    const bool isRead = static_cast<bool>(std::getline(std::cin, line));
    if (isTerminal) fmt::print(stderr, "\n");
    return isRead ? std::optional(line) : std::nullopt;
}

std::filesystem::path driverLogFile() {
    return "/var/log/kelmora-id-minidriver/kelmora-id-minidriver.log";
}

bool isTerminal(std::FILE* stream) {
    return isatty(fileno(stream)) == 1;
}

bool takesEscapeSequences(std::FILE* stream) {
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != 0 && std::string_view(terminal) != "dumb" &&
           isTerminal(stream);
}

std::FILE* separateReport() {
    std::fflush(stdout);
    const int report = dup(STDOUT_FILENO);
    if (report < 0) return stdout;
    std::FILE* stream = fdopen(report, "w");
    if (stream == nullptr) return stdout;
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    // Without a null device it is better closed than shown.
    if (nothing < 0) {
        close(STDOUT_FILENO);
        return stream;
    }
    dup2(nothing, STDOUT_FILENO);
    if (nothing != STDOUT_FILENO) close(nothing);
    return stream;
}

void showOtherOutput() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

}  // namespace cardhost::os
