// What the process holds, for tests that nothing grows.
#pragma once

namespace boundary {

struct Resources {
    long long bytes = 0;  ///< in all heaps, in use
    long handles = 0;     ///< of the kernel; natively the open files
    long gdiObjects = 0;  ///< 0 where there are none
};
Resources resourcesOfTheProcess();

}  // namespace boundary
