// What a fault at a call of the platform's or of an allocator has to end with: a table of rules
// over the calls that a good run makes, without a look at how the driver comes to it. For the
// exchanges with the card the rules are those of tests/boundary/fault_rules.h.
#pragma once

#include <string>
#include <vector>

#include "fault_journeys.h"

namespace faults {

/// A call of a good run: its published name, with the command's INS behind that of SCardTransmit,
/// or "pfnCspAlloc"; and how many allocations of the driver's went before.
struct Call {
    std::string name;
    long allocationsBefore = 0;
};
using Calls = std::vector<Call>;

struct Expected {
    std::vector<DWORD> statuses;  ///< any of these; more than one where the data decides
    bool outputsAsGood = true;    ///< of a success: the outputs are those of the good run
};

/// @param at    the place of the call in the good run's calls
/// @param code  that it fails with
Expected afterPlatformCall(const Journey& journey, const PlatformSide& card, const Calls& calls,
                           std::size_t at, DWORD code);
Expected afterCallersAllocation(const Journey& journey);
/// @param n  the number, from 1, of the allocation
Expected afterAllocation(const Journey& journey, const Calls& calls, long n);
/// Wrong data in good form: what can come of it.
Expected afterWrongData(const Journey& journey);

/// The codes that a call of that name can fail with.
std::vector<DWORD> codesOf(const std::string& name);

}  // namespace faults
