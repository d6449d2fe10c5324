// CardEnumFiles: the listing of a directory in a buffer that passes to the caller.
#include <algorithm>

#include "files/virtual_files.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {

DWORD WINAPI CardEnumFiles(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR* pmszFileNames,
                           LPDWORD pdwcbFileName, DWORD dwFlags) {
    logEntry("CardEnumFiles");
    if (dwFlags != 0 || pCardData == nullptr || pmszFileNames == nullptr ||
        pdwcbFileName == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    ByteVector listing;
    if (pszDirectoryName != nullptr) {
        const std::string_view directory(pszDirectoryName);
        if (directory.empty() || directory.size() > 8) return SCARD_E_INVALID_PARAMETER;
        if (!sameName(directory, minidriverDirectory)) return SCARD_E_DIR_NOT_FOUND;
        listing = minidriverListing(contextOf(pCardData));
    } else {
        listing = rootListing();
    }
    auto* names = static_cast<LPSTR>(pCardData->pfnCspAlloc(listing.size()));
    if (names == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    std::copy(listing.begin(), listing.end(), names);
    *pmszFileNames = names;
    *pdwcbFileName = static_cast<DWORD>(listing.size());
    return SCARD_S_SUCCESS;
}

}  // namespace KelmoraID
