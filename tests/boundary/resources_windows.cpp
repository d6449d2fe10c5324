#include <windows.h>

#include <array>

#include "resources.h"

namespace boundary {

Resources resourcesOfTheProcess() {
    Resources resources;
    std::array<HANDLE, 64> heaps{};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    for (DWORD at = 0; at < count && at < heaps.size(); ++at) {
        PROCESS_HEAP_ENTRY entry{};
        HeapLock(heaps[at]);
        while (HeapWalk(heaps[at], &entry)) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) resources.bytes += entry.cbData;
        }
        HeapUnlock(heaps[at]);
    }
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles)) {
        resources.handles = static_cast<long>(handles);
    }
    resources.gdiObjects = static_cast<long>(GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS));
    return resources;
}

}  // namespace boundary
