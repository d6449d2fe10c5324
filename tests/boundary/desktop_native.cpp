// There is no desktop here: the platform's two calls about windows tell of one.
#include <dlfcn.h>

#include <algorithm>
#include <string>

#include "desktop.h"
#include "driver_under_test.h"
#include "native_platform.h"
#include "support/platform_calls.h"

namespace boundary {

using KelmoraID::testing::platformCalls;

Desktop::Desktop()
    : library_(dlopen((programFolder() + "/CodeEntryLibrary.dll").c_str(), RTLD_NOW)) {
    if (library_ == nullptr) return;
    find_ = reinterpret_cast<CodeEntryScript* (*)()>(dlsym(library_, "codeEntryScript"));
    if (find_ == nullptr) return;
    script = find_();
    *script = {};
    writeSetting(Setting::companionStartCommand, programFolder() + "\\Companion.exe");
    platformCalls().GetForegroundWindow = [] {
        static int window;
        return static_cast<HWND>(&window);
    };
    platformCalls().GetClassNameW = [](HWND window, LPWSTR name, int room) -> int {
        constexpr std::u16string_view text = u"Ordinary Window";
        if (window == nullptr || room <= static_cast<int>(text.size())) return 0;
        std::copy(text.begin(), text.end(), name);
        name[text.size()] = 0;
        return static_cast<int>(text.size());
    };
}

Desktop::~Desktop() {
    writeSetting(Setting::companionStartCommand, "");
    resetPlatform();
    if (library_ != nullptr) dlclose(library_);
}

bool Desktop::isUp() {
    return true;
}

}  // namespace boundary
