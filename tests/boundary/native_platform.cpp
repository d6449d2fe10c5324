#include "native_platform.h"

#include <atomic>
#include <mutex>
#include <set>

#include "support/platform_calls.h"

extern "C" PCCERT_CONTEXT WINAPI __real_CertCreateCertificateContext(DWORD, const BYTE*, DWORD);
extern "C" HMODULE WINAPI __real_LoadLibraryExW(LPCWSTR, HANDLE, DWORD);
extern "C" BOOL WINAPI __real_FreeLibrary(HMODULE);
extern "C" BOOL WINAPI __real_CertFreeCertificateContext(PCCERT_CONTEXT);

namespace boundary {
namespace {

std::mutex guard;  // Threads of other tests make certificates side by side.

// It outlives the program's end, when the leak checker looks.
std::set<PCCERT_CONTEXT>& certificates() {
    static auto* const live = new std::set<PCCERT_CONTEXT>;
    return *live;
}

PCCERT_CONTEXT make(DWORD encoding, const BYTE* bytes, DWORD size) {
    PCCERT_CONTEXT made = __real_CertCreateCertificateContext(encoding, bytes, size);
    const std::lock_guard lock(guard);
    if (made != nullptr) certificates().insert(made);
    return made;
}

BOOL giveBack(PCCERT_CONTEXT certificate) {
    {
        const std::lock_guard lock(guard);
        certificates().erase(certificate);
    }
    return __real_CertFreeCertificateContext(certificate);
}

std::atomic<int> libraries = 0;

HMODULE load(LPCWSTR path, HANDLE file, DWORD flags) {
    const HMODULE loaded = __real_LoadLibraryExW(path, file, flags);
    if (loaded != nullptr) ++libraries;
    return loaded;
}

BOOL unload(HMODULE library) {
    --libraries;
    return __real_FreeLibrary(library);
}

// Calls are counted where a test asks for it: others have threads of their own, and go round many
// times.
[[maybe_unused]] const bool isSet = [] {
    resetPlatform();
    return KelmoraID::testing::countsPlatformCalls = false;
}();

}  // namespace

void resetPlatform() {
    KelmoraID::testing::PlatformCalls hooks;
    hooks.CertCreateCertificateContext = make;
    hooks.CertFreeCertificateContext = giveBack;
    hooks.LoadLibraryExW = load;
    hooks.FreeLibrary = unload;
    KelmoraID::testing::platformCalls() = hooks;
}

std::size_t liveCertificates() {
    const std::lock_guard lock(guard);
    return certificates().size();
}

int liveLibraries() {
    return libraries;
}

}  // namespace boundary
