// KERNEL32's library loading, current directory and last error. Paths come in the form of Windows:
// each backslash of them is a folder's end here.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <string>

#include "platform/win32.h"
#include "posix/utf_text.h"

namespace KelmoraID::platform {
namespace {

constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_DIRECTORY = 267;

thread_local DWORD lastError = 0;

std::string pathOf(LPCWSTR text) {
    std::string path = utf8Of(text);
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

DWORD WINAPI GetLastError() {
    return lastError;
}

void WINAPI SetLastError(DWORD dwErrCode) {
    lastError = dwErrCode;
}

// The altered search path asks for a library's neighbours beside it, which is for the library
// itself to say here (by its run path): the flag changes nothing.
HMODULE WINAPI LoadLibraryExW(LPCWSTR lpLibFileName, HANDLE hFile, DWORD dwFlags) try {
    if (lpLibFileName == nullptr || *lpLibFileName == 0 || hFile != nullptr ||
        (dwFlags & ~LOAD_WITH_ALTERED_SEARCH_PATH) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    void* module = dlopen(pathOf(lpLibFileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) SetLastError(ERROR_MOD_NOT_FOUND);
    return module;
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    // A number below 65536 in the pointer's place is an ordinal, which no library has here.
    constexpr std::uintptr_t ordinals = 0x10000;
    void* found = nullptr;
    if (hModule != nullptr && reinterpret_cast<std::uintptr_t>(lpProcName) >= ordinals) {
        found = dlsym(hModule, lpProcName);
    }
    // dlsym looks through the libraries that this one needs too; an export is the library's own.
    Dl_info place;
    link_map* home = nullptr;
    link_map* asked = nullptr;
    if (found != nullptr &&
        (dladdr1(found, &place, reinterpret_cast<void**>(&home), RTLD_DL_LINKMAP) == 0 ||
         dlinfo(hModule, RTLD_DI_LINKMAP, &asked) != 0 || home != asked)) {
        found = nullptr;
    }
    if (found == nullptr) SetLastError(ERROR_PROC_NOT_FOUND);
    return reinterpret_cast<FARPROC>(found);
}

BOOL WINAPI FreeLibrary(HMODULE hLibModule) {
    if (hLibModule == nullptr || dlclose(hLibModule) != 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

BOOL WINAPI SetCurrentDirectoryW(LPCWSTR lpPathName) try {
    if (lpPathName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (chdir(pathOf(lpPathName).c_str()) == 0) return TRUE;
    if (errno == EACCES) {
        SetLastError(ERROR_ACCESS_DENIED);
    } else {
        SetLastError(errno == ENOTDIR ? ERROR_DIRECTORY : DWORD{ERROR_FILE_NOT_FOUND});
    }
    return FALSE;
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}
