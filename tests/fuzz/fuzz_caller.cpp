// A hostile caller over an honest card: the virtual card with its real keys.
#include "entry_point_calls.h"
#include "fuzz_target.h"
#include "hostile_card.h"
#include "known_statuses.h"
#include "session/entry_points.h"

namespace {

// Fields of the record as only a broken caller has them. Those that hold are restored afterwards.
void acquireBadly(fuzz::CallersRecord& record, fuzz::FuzzInput& input) {
    const CARD_DATA good = record.data;
    const fuzz::Bytes atr = input.block();
    const std::unique_ptr<BYTE[]> exact(new BYTE[atr.size()]);
    std::copy(atr.begin(), atr.end(), exact.get());
    const std::uint8_t choice = input.byte();
    record.data.dwVersion = choice & 1 ? input.number() : good.dwVersion;
    record.data.pbAtr = choice & 2 ? exact.get() : nullptr;
    record.data.cbAtr = static_cast<DWORD>(atr.size());
    if (choice & 4) record.data.pwszCardName = nullptr;
    if (choice & 8) record.data.pfnCspAlloc = nullptr;
    if (choice & 16) record.data.hScard = 0;
    if (choice & 32) record.data.hSCardCtx = 0;
    const DWORD flags = choice & 64 ? input.number() : 0;
    const DWORD status = CardAcquireContext(choice & 128 ? nullptr : &record.data, flags);
    fuzz::require(fuzz::isKnownStatus(status), "the acquisition ends with a known status");
    if (status != 0) record.data = good;
    record.data.pbAtr = good.pbAtr;
    record.data.cbAtr = good.cbAtr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::uint8_t honest[] = {input.byte(), 0};
    fuzz::HostileCard card(fuzz::FuzzInput(honest, sizeof(honest)));
    fuzz::CallersRecord record(card.atr(), fuzz::HostileCard::contextHandle,
                               fuzz::HostileCard::cardHandle);
    if (input.byte() >= 0xC0) acquireBadly(record, input);
    if (record.data.pvVendorSpecific == nullptr) {
        fuzz::require(CardAcquireContext(&record.data, 0) == 0, "an honest card is acquired");
    }
    fuzz::callEntryPoints(record, input, 40);
    return 0;
}
