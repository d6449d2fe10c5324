#include "desktop.h"

#include "driver_under_test.h"

namespace boundary {

Desktop::Desktop() : library_(LoadLibraryA((programFolder() + "\\CodeEntryLibrary.dll").c_str())) {
    if (library_ == nullptr) return;
    find_ = reinterpret_cast<CodeEntryScript* (*)()>(reinterpret_cast<void (*)()>(
        GetProcAddress(static_cast<HMODULE>(library_), "codeEntryScript")));
    if (find_ == nullptr) return;
    script = find_();
    *script = {};
    writeSetting(Setting::companionStartCommand, programFolder() + "\\Companion.exe");
}

Desktop::~Desktop() {
    writeSetting(Setting::companionStartCommand, "");
    if (library_ != nullptr) FreeLibrary(static_cast<HMODULE>(library_));
}

// A desktop that has only just been started has no window in front yet, and the driver then takes
// it for the logon screen.
bool Desktop::isUp() {
    constexpr ULONGLONG patience = 60'000;
    const ULONGLONG began = GetTickCount64();
    while (GetTickCount64() - began < patience) {
        GetDesktopWindow();  // Asks for it anew, should its start have been given up on.
        char name[64];
        if (GetClassNameA(GetForegroundWindow(), name, sizeof(name)) > 0) return true;
        Sleep(50);
    }
    return false;
}

}  // namespace boundary
