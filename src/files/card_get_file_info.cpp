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
        logDebug("CMR_251: pCardData is NULL");
        return SCARD_E_INVALID_PARAMETER;
    }
    if (pszFileName == nullptr || *pszFileName == '\0') {
        logDebug("CMR_252: pszFileName is NULL or empty");
        return SCARD_E_INVALID_PARAMETER;
    }
    if (pCardFileInfo == nullptr) {
        logDebug("CMR_253: pCardFileInfo is NULL");
        return SCARD_E_INVALID_PARAMETER;
    }
    if (pCardFileInfo->dwVersion >= 2) {
        logDebug(fmt::format("CMR_260: pCardFileInfo version {} not supported",
                             pCardFileInfo->dwVersion));
        return ERROR_REVISION_MISMATCH;
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
