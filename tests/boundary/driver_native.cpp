#include <filesystem>
#include <fstream>
#include <map>

#include "driver_under_test.h"
#include "platform/fixed_paths.h"

extern "C" DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);

// Of the compiler's run-time library, under a leak checker only.
extern "C" __attribute__((weak)) void __lsan_ignore_object(const void* object);

namespace boundary {

PFN_CARD_ACQUIRE_CONTEXT acquireContextOfDriver() {
    return CardAcquireContext;
}

namespace {
const CardSeam* current = nullptr;
}  // namespace

void putBehindTheSeam(const CardSeam* seam) {
    current = seam;
    SetCardSeam(seam);
}

const CardSeam* behindTheSeam() {
    return current;
}

void writeSetting(Setting setting, const std::string& value) {
    static std::map<Setting, std::string> values;
    values[setting] = value;
    std::ofstream file(settingsFilePath());
    const auto write = [&](Setting which, const char* key, const char* name) {
        if (!values[which].empty())
            file << '[' << key << "]\n" << name << '=' << values[which] << '\n';
    };
    write(Setting::serviceAddresses, "SOFTWARE\\Kelmora\\KelmoraID", "ADRSURL");
    write(Setting::companionStartCommand,
          "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Run", "Kelmora ID");
}

void leftBehind(const void* object) {
    if (__lsan_ignore_object != nullptr) __lsan_ignore_object(object);
}

std::string programFolder() {
    return std::filesystem::canonical("/proc/self/exe").parent_path().string();
}

}  // namespace boundary
