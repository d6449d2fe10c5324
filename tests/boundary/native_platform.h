// The platform's calls under the native suite: each can be hooked (support/platform_calls.h).
#pragma once

#include <cstddef>

namespace boundary {

/// Takes every hook away, but those that count what the driver gives up, and hold on to the
/// certificates: what the driver gives up for good is no leak to report.
void resetPlatform();

/// How many certificates the driver has made and not given back.
std::size_t liveCertificates();

/// How many libraries it has loaded and not freed.
int liveLibraries();

}  // namespace boundary
