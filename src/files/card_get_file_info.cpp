// CardGetFileInfo: size and access condition of a virtual file.
#include <fmt/format.h>

#include "files/virtual_files.h"
#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {

DWORD WINAPI CardGetFileInfo(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                             PCARD_FILE_INFO pCardFileInfo) {
    logEntry("CardGetFileInfo");
    if (pCardData == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_251: pCardData is NULL");
    }
    if (pszFileName == nullptr || *pszFileName == '\0') {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_252: pszFileName is NULL or empty");
    }
    if (pCardFileInfo == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_253: pCardFileInfo is NULL");
    }
    if (pCardFileInfo->dwVersion >= 2) {
        return refuseWith(ERROR_REVISION_MISMATCH,
                          fmt::format("CMR_260: pCardFileInfo version {} not supported",
                                      pCardFileInfo->dwVersion));
    }
    // quirk: file-info-ahead-of-names. A record of a name that is refused is changed too.
    // quirk: file-info-version. It becomes that of CARD_DATA, and not that of this record.
    pCardFileInfo->AccessCondition = EveryoneReadUserWriteAc;
    pCardFileInfo->dwVersion = pCardData->dwVersion;

    const CardContext& context = contextOf(pCardData);
    const VirtualFile* file = nullptr;
    if (pszDirectoryName == nullptr) {
        file = findRootFile(pszFileName);
    } else if (sameName(pszDirectoryName, minidriverDirectory)) {
        file = findMinidriverFile(pszFileName, context);
    } else {
        return SCARD_E_DIR_NOT_FOUND;
    }
    if (file == nullptr) return SCARD_E_FILE_NOT_FOUND;
    pCardFileInfo->cbFileSize = file->statedSize(context);
    pCardFileInfo->AccessCondition = file->accessCondition;
    return SCARD_S_SUCCESS;
}

}  // namespace KelmoraID
