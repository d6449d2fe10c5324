#include "calls.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "platform/fixed_paths.h"

namespace boundary {

Calls::~Calls() {
    if (!hasLogFile_) std::filesystem::remove(logFilePath());
}

void Calls::call(const std::string& what, const std::function<DWORD()>& work) {
    // Its own, so that the file is read from this call on.
    DriverLog log;
    // Where a folder stands in its place, no file can be opened.
    if (!hasLogFile_) std::filesystem::create_directory(logFilePath());
    told_.clear();
    const DWORD status = work();
    char number[16];
    std::snprintf(number, sizeof(number), "0x%08X", static_cast<unsigned>(status));
    text_ += what + "\n    " + number + told_ + "\n";
    if (hasLogFile_) writeLines("file", log.file());
    writeLines("output", log.output());
}

void Calls::tellBytes(const std::string& name, const void* bytes, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    tell(name, bytes == nullptr ? "none" : toHex(Bytes(first, first + size)));
}

void Calls::writeLines(const char* channel, const KelmoraID::testing::LogLines& lines) {
    // Where a record stands is of no interest.
    static const std::regex pointer("(p[A-Z]\\w+):'0x[1-9a-f][0-9a-f]*'");
    for (const auto& line : lines) {
        std::string message = std::regex_replace(line.message, pointer, "$1:'(address)'");
        for (std::size_t at = 0; (at = message.find('\n', at)) != std::string::npos; at += 2) {
            message.replace(at, 1, "\\n");
        }
        text_ += std::string("    ") + channel + " [" + line.scope + "] " + message + "\n";
    }
}

std::string keptCalls(const std::string& name) {
    std::ifstream file(std::filesystem::path(programFolder()) / "calls" / name, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string difference(const std::string& name, const std::string& seen, const std::string& kept) {
    std::istringstream left(seen);
    std::istringstream right(kept);
    std::string ofSeen;
    std::string ofKept;
    std::string call;
    do {
        if (!ofSeen.starts_with(' ')) call = ofSeen;
        if (!std::getline(left, ofSeen)) ofSeen = "(end)";
        if (!std::getline(right, ofKept)) ofKept = "(end)";
    } while (ofSeen == ofKept);
    return name + ", " + call + "\n  seen: " + ofSeen + "\n  kept: " + ofKept;
}

void expectAsKept(const std::string& name, const std::string& seen) {
    const std::string kept = keptCalls(name);
    if (seen == kept) return;
    const std::filesystem::path folder = std::filesystem::path(programFolder()) / "calls-seen";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << seen;
    FAIL() << difference(name, seen, kept) << "\nThe whole of what was seen: " << folder / name;
}

}  // namespace boundary
