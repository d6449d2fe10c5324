#include "calls.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include "platform/fixed_paths.h"

namespace boundary {
namespace {

// Where a record stands is of no interest, only whether it is there: pCardData:'0x5500aa' becomes
// pCardData:'(address)'.
std::string withoutAddresses(std::string text) {
    constexpr std::string_view begin = ":'0x";
    for (std::size_t at = 0; (at = text.find(begin, at)) != std::string::npos; ++at) {
        std::size_t name = at;
        while (name > 0 && std::isalnum(static_cast<unsigned char>(text[name - 1])) != 0) --name;
        const std::size_t digits = at + begin.size();
        const std::size_t end = text.find_first_not_of("0123456789abcdef", digits);
        if (text[name] == 'p' && std::isupper(static_cast<unsigned char>(text[name + 1])) != 0 &&
            text[digits] != '0' && end != std::string::npos && text[end] == '\'') {
            text.replace(at + 2, end - at - 2, "(address)");
        }
    }
    return text;
}

}  // namespace

Calls::~Calls() {
    if (!hasLogFile_) KelmoraID::testing::removeLogFile();
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
    for (const auto& line : lines) {
        std::string message = withoutAddresses(line.message);
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
