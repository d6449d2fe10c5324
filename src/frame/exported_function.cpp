// The one export.
#include "frame/acquisition.h"
#include "frame/boundary.h"
#include "session/entry_points.h"

extern "C" DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags) {
    return KelmoraID::Guarded<&KelmoraID::acquireContext>::call(pCardData, dwFlags);
}
