// A caller that means harm: calls through the record's table with arguments from the input.
#pragma once

#include "callers_record.h"
#include "fuzz_input.h"

namespace fuzz {

/// Makes calls until the input is at its end, at most so many. Each ends with a status that is
/// known, and what it hands over is there and as long as it says.
void callEntryPoints(CallersRecord& record, FuzzInput& input, int most);

}  // namespace fuzz
