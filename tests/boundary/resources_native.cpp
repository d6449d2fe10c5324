#include <dirent.h>
#include <malloc.h>

#include <cstddef>
#include <cstdlib>

#include "resources.h"

// Of the compiler's run-time library, under a sanitizer that replaces the allocator.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace boundary {
namespace {

// Botan keeps secrets in a pool of locked memory, as large as the user may lock, and takes what no
// longer fits from the heap: without the pool each certificate costs the same.
[[gnu::constructor]] void takeAllFromTheHeap() {
    setenv("BOTAN_MLOCK_POOL_SIZE", "0", 0);
}

}  // namespace

Resources resourcesOfTheProcess() {
    Resources resources;
    resources.bytes = static_cast<long long>(__sanitizer_get_current_allocated_bytes != nullptr
                                                 ? __sanitizer_get_current_allocated_bytes()
                                                 : mallinfo2().uordblks);
    DIR* const folder = opendir("/proc/self/fd");
    while (folder != nullptr && readdir(folder) != nullptr) ++resources.handles;
    if (folder != nullptr) closedir(folder);
    return resources;
}

}  // namespace boundary
