#include "driver_log.h"

#include <fstream>

#include <fmt/format.h>

#include "doctor/log_lines.h"
#include "exit_codes.h"
#include "files.h"

namespace cardhost {

namespace {

constexpr std::size_t readAtMost = 4 * 1024 * 1024;
constexpr std::size_t mostLines = 3000;

ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A log that has been added to its end.
LoggedLogon lastLogonOf(doctor::LogReader& log) {
    log.finish();
    LoggedLogon logon{{}, log.droppedCalls(), log.last()};
    auto& entries = logon.conversation.entries;
    for (const doctor::LoggedCall& call : log.calls()) {
        if (!call.scope.empty()) entries.push_back(recording::Call{call.scope});
        for (const std::string& line : call.lines) entries.push_back(recording::LogLine{line});
        if (call.status) entries.push_back(recording::Result{*call.status, {}});
    }
    return logon;
}

}  // namespace

LogFollower::LogFollower(std::filesystem::path file) : file_(std::move(file)) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file_, error);
    if (!error) seen_ = size;
}

std::vector<std::string> LogFollower::newLines() {
    std::error_code error;
    const auto size = std::filesystem::file_size(file_, error);
    std::vector<std::string> lines;
    if (error || size <= seen_ || size - seen_ > readAtMost) return lines;
    std::ifstream stream(file_, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(seen_));
    std::string text(static_cast<std::size_t>(size - seen_), '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    seen_ += text.size();
    doctor::LogLines parts(
        [&](const doctor::LogLine& line) { lines.push_back(doctor::textOf(line)); });
    parts.add(bytesOf(text));
    parts.finish();
    return lines;
}

LoggedLogon lastLogonIn(std::string_view text) {
    doctor::LogReader log(mostLines);
    log.add(bytesOf(text));
    return lastLogonOf(log);
}

LoggedLogon lastLogonInLog(const std::filesystem::path& file) {
    doctor::LogReader log(mostLines);
    forEachPiece(file, [&](ByteView piece) { log.add(piece); });
    auto logon = lastLogonOf(log);
    if (logon.conversation.entries.empty()) {
        throw Failure(ExitCode::file,
                      log.lines() == 0
                          ? fmt::format("{} is empty", shown(file))
                          : fmt::format("{} tells of no call of the driver", shown(file)));
    }
    return logon;
}

}  // namespace cardhost
