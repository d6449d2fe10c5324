// USER32's window calls where there is no desktop: nothing is a window, and no window is in front.
// A caller that cannot tell what is in front has to assume the logon screen.
#include "platform/win32.h"

namespace {

constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;

}  // namespace

BOOL WINAPI IsWindow(HWND) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

HWND WINAPI GetForegroundWindow() {
    return nullptr;
}

// The buffer is left as it was, as on every failure of this call.
int WINAPI GetClassNameW(HWND, LPWSTR, int) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
}
