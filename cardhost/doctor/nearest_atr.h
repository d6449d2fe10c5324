// For a card that is none of ours: which known card its ATR comes closest to.
#pragma once

#include <string>

#include "bytes.h"

namespace cardhost::doctor {

/// "one bit away from type 5 (byte 10: 85, there 84)" and the like; empty where none is near.
std::string nearestAtrText(ByteView atr);

}  // namespace cardhost::doctor
