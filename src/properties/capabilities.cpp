// What the minidriver can do, in the two entry points that tell it besides the properties.
#include <fmt/format.h>

#include "session/entry_log.h"
#include "session/entry_points.h"

namespace KelmoraID {

DWORD WINAPI CardQueryCapabilities(PCARD_DATA pCardData, PCARD_CAPABILITIES pCardCapabilities) {
    logEntry("CardQueryCapabilities");
    if (pCardData == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_318: pCardData is NULL");
    }
    if (pCardCapabilities == nullptr) {
        return refuseWith(SCARD_E_INVALID_PARAMETER, "CMR_319: pCardCapabilities is NULL");
    }
    if (pCardCapabilities->dwVersion >= 2) {
        return refuseWith(ERROR_REVISION_MISMATCH,
                          fmt::format("CMR_320: pCardCapabilities version {} is not supported",
                                      pCardCapabilities->dwVersion));
    }
    // quirk: capabilities-untold. The record is left exactly as it came: the true answers are those
    // of the property "Capabilities".
    return SCARD_S_SUCCESS;
}

DWORD WINAPI CardQueryFreeSpace(PCARD_DATA pCardData, DWORD dwFlags,
                                PCARD_FREE_SPACE_INFO pCardFreeSpaceInfo) {
    logEntry("CardQueryFreeSpace");
    if (dwFlags != 0 || pCardData == nullptr || pCardFreeSpaceInfo == nullptr) {
        return SCARD_E_INVALID_PARAMETER;
    }
    if (pCardFreeSpaceInfo->dwVersion >= 2) {
        return refuseWith(ERROR_REVISION_MISMATCH,
                          fmt::format("CMR_314: pCardFreeSpaceInfo version {} is not supported",
                                      pCardFreeSpaceInfo->dwVersion));
    }
    pCardFreeSpaceInfo->dwVersion = 1;
    pCardFreeSpaceInfo->dwBytesAvailable = 0;
    pCardFreeSpaceInfo->dwKeyContainersAvailable = 0;
    // quirk: two-containers-on-every-card. Also on those with a third.
    pCardFreeSpaceInfo->dwMaxKeyContainers = 2;
    return SCARD_S_SUCCESS;
}

}  // namespace KelmoraID
