#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "driver_under_test.h"
#include "platform/fixed_paths.h"

namespace boundary {
namespace {

HMODULE load(const char* name) {
    const HMODULE module = LoadLibraryA((programFolder() + "\\" + name).c_str());
    if (module == nullptr) {
        std::printf("%s cannot be loaded: error %lu\n", name, GetLastError());
        std::exit(2);
    }
    return module;
}

template <typename Function>
Function find(HMODULE module, const char* name) {
    const FARPROC function = GetProcAddress(module, name);
    if (function == nullptr) {
        std::printf("%s is not exported\n", name);
        std::exit(2);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(function));
}

// The double is loaded first: the driver's import of that name finds it.
HMODULE seamLibrary() {
    static const HMODULE module = load("winscard.dll");
    return module;
}

}  // namespace

PFN_CARD_ACQUIRE_CONTEXT acquireContextOfDriver() {
    seamLibrary();
    static const HMODULE driver = load("kelmora-id-minidriver.dll");
    return find<PFN_CARD_ACQUIRE_CONTEXT>(driver, "CardAcquireContext");
}

void putBehindTheSeam(const CardSeam* seam) {
    find<SetCardSeamFunction>(seamLibrary(), "SetCardSeam")(seam);
}

void writeSetting(Setting setting, const std::string& value) {
    const bool addresses = setting == Setting::serviceAddresses;
    const char* key = addresses ? "SOFTWARE\\Kelmora\\KelmoraID"
                                : "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Run";
    const char* name = addresses ? "ADRSURL" : "Kelmora ID";
    HKEY opened = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened,
                        nullptr) != ERROR_SUCCESS) {
        std::printf("the registry key %s cannot be made\n", key);
        std::exit(2);
    }
    if (value.empty()) {
        RegDeleteValueA(opened, name);
    } else {
        RegSetValueExA(opened, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                       static_cast<DWORD>(value.size() + 1));
    }
    RegCloseKey(opened);
}

void leftBehind(const void*) {}

LibraryCopy::LibraryCopy() : module_(nullptr) {
    seamLibrary();
    [[maybe_unused]] static const BOOL isCopied =
        CopyFileA((programFolder() + "\\kelmora-id-minidriver.dll").c_str(),
                  (programFolder() + "\\minidriver-copy.dll").c_str(), FALSE);
    module_ = load("minidriver-copy.dll");
}

LibraryCopy::~LibraryCopy() {
    FreeLibrary(static_cast<HMODULE>(module_));
}

bool LibraryCopy::isLoaded() {
    return GetModuleHandleA("minidriver-copy.dll") != nullptr;
}

PFN_CARD_ACQUIRE_CONTEXT LibraryCopy::acquireContext() const {
    return find<PFN_CARD_ACQUIRE_CONTEXT>(static_cast<HMODULE>(module_), "CardAcquireContext");
}

std::string programFolder() {
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string text(path);
    return text.substr(0, text.find_last_of('\\'));
}

// Whatever another program has left in this machine's registry, before the first test.
[[maybe_unused]] const bool registryIsClean = [] {
    writeSetting(Setting::serviceAddresses, "");
    writeSetting(Setting::companionStartCommand, "");
    return true;
}();

}  // namespace boundary

// The log file's place is the product's own.
const char* logFilePath() {
    return "C:\\Program Files\\Kelmora-ID-minidriver\\Log\\Kelmora-ID-minidriver.log";
}
