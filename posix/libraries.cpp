// KERNEL32's library loading, current directory and last error. Paths come in the form of Windows:
// each backslash of them is a folder's end here.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "platform/win32.h"
#include "posix/utf_text.h"

namespace {

thread_local DWORD lastError = 0;

std::string pathOf(LPCWSTR text) {
    std::string path = KelmoraID::platform::utf8Of(text);
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

}  // namespace

DWORD WINAPI GetLastError() {
    return lastError;
}

void WINAPI SetLastError(DWORD dwErrCode) {
    lastError = dwErrCode;
}

// The altered search path asks for a library's neighbours beside it, which is for the library
// itself to say here (by its run path): the flag changes nothing. Nor is an empty name this
// program.
HMODULE WINAPI LoadLibraryExW(LPCWSTR lpLibFileName, HANDLE, DWORD) {
    void* module = *lpLibFileName == 0
                       ? nullptr
                       : dlopen(pathOf(lpLibFileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) SetLastError(ERROR_MOD_NOT_FOUND);
    return module;
}

FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    void* found = dlsym(hModule, lpProcName);
    if (found == nullptr) SetLastError(ERROR_PROC_NOT_FOUND);
    return reinterpret_cast<FARPROC>(found);
}

BOOL WINAPI FreeLibrary(HMODULE hLibModule) {
    return dlclose(hLibModule) == 0 ? TRUE : FALSE;
}

BOOL WINAPI SetCurrentDirectoryW(LPCWSTR lpPathName) {
    if (chdir(pathOf(lpPathName).c_str()) == 0) return TRUE;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
}
