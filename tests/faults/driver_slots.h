// The ways into the driver: the export, which the linker wraps, and the slots of its table. Each
// call through one of them counts as the driver's own run (driver_memory.h).
#pragma once

#include <cstddef>
#include <span>

#include "platform/minidriver.h"

namespace faults {

struct SlotRow {
    const char* entryPoint;
    std::size_t offset;       ///< in CARD_DATA
    void (*put)(CARD_DATA&);  ///< puts the wrapper in, where the driver has filled the slot
    const int& timesEntered;
};

/// Every slot that the driver may fill, in the order of the record.
std::span<const SlotRow> driverSlots();

/// CardDeleteContext for a record whose table an acquisition has not filled, although it has left a
/// context there. Some acquisition must have filled a table before.
DWORD deleteHalfFilled(CARD_DATA& data);

}  // namespace faults
