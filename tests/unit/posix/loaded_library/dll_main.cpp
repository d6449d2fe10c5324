// A library whose entry function tells of its calls.
#include "platform/win32.h"

namespace {

int calls = 0;
DWORD lastReason = 99;
void (*listener)(DWORD) = nullptr;

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID lpvReserved);
BOOL WINAPI DllMain(HINSTANCE, DWORD fdwReason, LPVOID) {
    ++calls;
    lastReason = fdwReason;
    if (listener != nullptr) listener(fdwReason);
    return TRUE;
}

DWORD entryCalls(DWORD& reason, void (*further)(DWORD));
DWORD entryCalls(DWORD& reason, void (*further)(DWORD)) {
    reason = lastReason;
    listener = further;
    return static_cast<DWORD>(calls);
}
}
