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

/// What the caller has of it.
enum class Gives {
    asGood,     ///< what the journey's rule says, or without one what the good run gave
    nothing,    ///< its fields and buffers are as they came
    ahead,      ///< what is written ahead of the rest
    otherwise,  ///< what stands beside
};
struct Expected {
    DWORD status;  ///< success stands for the good run's
    Gives gives;
    Bytes otherwise = {};
    bool mayGoOn = false;  ///< the good run's end is right as well
};

/// @param at    the place of the call in the good run's calls
/// @param code  that it fails with
Expected afterPlatformCall(const Journey& journey, const PlatformSide& card, const GoodRun& good,
                           const Calls& calls, std::size_t at, DWORD code);
/// @param at  the place of pfnCspAlloc in the good run's calls
Expected afterCallersAllocation(const Journey& journey, const GoodRun& good, const Calls& calls,
                                std::size_t at);
/// @param n  the number, from 1, of the allocation
Expected afterAllocation(const Journey& journey, const GoodRun& good, const Calls& calls, long n);

/// The codes that a call of that name can fail with.
std::vector<DWORD> codesOf(const std::string& name);

}  // namespace faults
