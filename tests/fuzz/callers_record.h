// The platform's record of a card, with an allocator that can run dry and knows what it gave.
#pragma once

#include "fuzz_input.h"
#include "platform/minidriver.h"
#include "platform/wide_text.h"

namespace fuzz {

class PlatformRecord {
public:
    PlatformRecord(const Bytes& atr, SCARDCONTEXT context, SCARDHANDLE card);
    /// Gives the card's object up, as CardDeleteContext does, and the certificate that it leaves.
    ~PlatformRecord();
    PlatformRecord(const PlatformRecord&) = delete;
    PlatformRecord& operator=(const PlatformRecord&) = delete;

    CARD_DATA data{};
    Bytes atr;

    /// The n-th allocation from now on finds no memory; 0 for none.
    static void failAllocation(int n);
    /// Looks at a buffer that the product handed over, and frees it. A null pointer is let be.
    static void take(void* buffer, std::size_t size, bool isFilled);
};

/// Whether the product may end a call of the table or the export with it.
bool isKnownStatus(DWORD status);

}  // namespace fuzz
