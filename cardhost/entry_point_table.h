// The slots of CARD_DATA's function table, by name, for those who want to see which are filled.
#pragma once

#include <string>
#include <vector>

#include "platform/minidriver.h"

namespace cardhost {

struct Slot {
    const char* name;
    bool isFilled;
};

/// All slots in the order of the record.
std::vector<Slot> slotsOf(const CARD_DATA& record);

}  // namespace cardhost
