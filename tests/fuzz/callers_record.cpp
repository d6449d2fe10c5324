#include "callers_record.h"

#include "fuzz_target.h"
#include "support/delete_context.h"
#include "support/platform_record.h"

namespace fuzz {

using KelmoraID::testing::PlatformMemory;

CallersRecord::CallersRecord(const Bytes& cardsAtr, SCARDCONTEXT context, SCARDHANDLE card)
    : atr(cardsAtr) {
    PlatformMemory::begin();
    KelmoraID::testing::fillRecord(data, atr, context, card);
}

CallersRecord::~CallersRecord() {
    PlatformMemory::failNth(0);
    KelmoraID::testing::deleteContext(data);
}

void CallersRecord::failAllocation(int n) {
    PlatformMemory::failNth(n);
}

void CallersRecord::take(void* buffer, std::size_t size, bool isFilled) {
    if (buffer == nullptr) return;
    if (isFilled) readAll(buffer, size);
    PlatformMemory::release(buffer);
}

}  // namespace fuzz
