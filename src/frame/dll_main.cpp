// What the loader calls when the DLL is loaded and unloaded, and for each thread. It only logs.
#include "log/logger.h"
#include "platform/win32.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID lpvReserved);

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD fdwReason, LPVOID) {
    try {
        KelmoraID::logToFile("DllMain", "Started with reason code: {}", fdwReason);
    } catch (...) {
        // Out of memory for a log line: nothing is to reach the loader.
    }
    return 1;
}
