#include "pin/dialog_library.h"

#include "log/logger.h"

namespace KelmoraID {

DialogLibrary::~DialogLibrary() {
    free();
}

void DialogLibrary::load(const WideString& path) {
    free();
    module_ = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

void DialogLibrary::logFailedLoad(const char* scope) {
    const DWORD code = GetLastError();  // Before the log touches files.
    logToFile(scope, "Unable to load DLL: CodeEntryLibrary");
    logToFile(scope, "Error code: {}", code);
}

FARPROC DialogLibrary::function(const char* name) const {
    return GetProcAddress(module_, name);
}

void DialogLibrary::free() {
    if (module_ == nullptr) return;
    FreeLibrary(module_);
    module_ = nullptr;
}

}  // namespace KelmoraID
