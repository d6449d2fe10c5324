// WinHTTP where there is none: the opening call fails, so that nothing gets as far as the others.
#include "platform/win32.h"

namespace {

BOOL refuse() {
    constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}

HINTERNET refuseHandle() {
    refuse();
    return nullptr;
}

}  // namespace

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) {
    return refuseHandle();
}

HINTERNET WINAPI WinHttpConnect(HINTERNET, LPCWSTR, INTERNET_PORT, DWORD) {
    return refuseHandle();
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR*,
                                    DWORD) {
    return refuseHandle();
}

BOOL WINAPI WinHttpSetTimeouts(HINTERNET, int, int, int, int) {
    return refuse();
}

BOOL WINAPI WinHttpSendRequest(HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD, DWORD, DWORD_PTR) {
    return refuse();
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET, LPVOID) {
    return refuse();
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET, LPDWORD) {
    return refuse();
}

BOOL WINAPI WinHttpReadData(HINTERNET, LPVOID, DWORD, LPDWORD) {
    return refuse();
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET) {
    return refuse();
}
