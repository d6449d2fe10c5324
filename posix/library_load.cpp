// What the loader does where there is no Windows: the library's entry function is called when it is
// loaded and when it goes.
#include "platform/win32.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID lpvReserved);

namespace {

[[gnu::constructor]] void loaded() {
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

[[gnu::destructor]] void unloading() {
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}

}  // namespace
