// CardReadFile: a virtual file's content in a buffer that passes to the caller.
#include <algorithm>
#include <span>

#include "files/virtual_files.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardReadFile";

// quirk: msroots-is-unexpected. Known by name and not there, and no SCARD_E_FILE_NOT_FOUND.
constexpr std::string_view rootCertificatesFile = "msroots";

void logParameters(LPCSTR directory, LPCSTR file, DWORD dwFlags) {
    logToFile(scope,
              "function parameters, pszDirectoryName:'{}', pszFileName:'{}' "
              "dwFlags:'{}'",
              directory, file, dwFlags);
}

// Hands content to the caller. The size is written before the allocation, so that it stands there
// also after one that failed.
DWORD handOver(PCARD_DATA pCardData, std::span<const BYTE> content, PBYTE* ppbData,
               PDWORD pcbData) {
    *pcbData = static_cast<DWORD>(content.size());
    *ppbData = static_cast<PBYTE>(pCardData->pfnCspAlloc(content.size()));
    if (*ppbData == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    std::copy(content.begin(), content.end(), *ppbData);
    return SCARD_S_SUCCESS;
}

}  // namespace

DWORD WINAPI CardReadFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                          DWORD dwFlags, PBYTE* ppbData, PDWORD pcbData) {
    logEntry(scope);
    if (pCardData == nullptr || pszFileName == nullptr || dwFlags != 0 || pcbData == nullptr ||
        ppbData == nullptr || *pszFileName == '\0') {
        return SCARD_E_INVALID_PARAMETER;
    }
    const VirtualFile* file = nullptr;
    if (pszDirectoryName != nullptr) {
        logParameters(pszDirectoryName, pszFileName, dwFlags);
        if (!sameName(pszDirectoryName, minidriverDirectory)) {
            return exitWith(scope, SCARD_E_DIR_NOT_FOUND);
        }
        if (sameName(pszFileName, rootCertificatesFile)) return SCARD_E_UNEXPECTED;
        file = findMinidriverFile(pszFileName, contextOf(pCardData));
    } else {
        logParameters("NULL", pszFileName, dwFlags);
        file = findRootFile(pszFileName);
    }
    if (file == nullptr) return exitWith(scope, SCARD_E_FILE_NOT_FOUND);

    const std::span<const BYTE> content = file->content(contextOf(pCardData));
    const DWORD status = handOver(pCardData, content, ppbData, pcbData);
    // quirk: buffer-of-an-empty-map. It is left with the caller, beside a failure. Only the map of
    // the containers can be empty.
    if (status == SCARD_S_SUCCESS && content.empty()) return exitWith(scope, SCARD_E_UNEXPECTED);
    return exitWith(scope, status);
}

}  // namespace KelmoraID
