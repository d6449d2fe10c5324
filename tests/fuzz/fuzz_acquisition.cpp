// The whole boundary over a hostile card: acquisition, and if that succeeds, the calls that follow.
#include "entry_point_calls.h"
#include "fuzz_target.h"
#include "hostile_card.h"
#include "known_statuses.h"
#include "session/entry_points.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const fuzz::Bytes callBytes = input.longBlock();
    fuzz::HostileCard hostile(input);
    fuzz::CallersRecord record(hostile.atr(), fuzz::HostileCard::contextHandle,
                               fuzz::HostileCard::cardHandle);
    const DWORD status = CardAcquireContext(&record.data, 0);
    fuzz::require(fuzz::isKnownStatus(status), "the acquisition ends with a known status");
    fuzz::require((status == 0) == (record.data.pfnCardDeleteContext != nullptr),
                  "the table is filled on success only");
    if (status == 0) {
        fuzz::FuzzInput calls(callBytes.data(), callBytes.size());
        fuzz::callEntryPoints(record, calls, 12);
    }
    return 0;
}
