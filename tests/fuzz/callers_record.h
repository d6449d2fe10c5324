// The record of a caller: acquired and deleted with its object, with memory that can run dry.
#pragma once

#include "fuzz_input.h"
#include "platform/minidriver.h"
#include "platform/wide_text.h"

namespace fuzz {

class CallersRecord {
public:
    CallersRecord(const Bytes& atr, SCARDCONTEXT context, SCARDHANDLE card);
    /// Deletes the context, if there is one.
    ~CallersRecord();
    CallersRecord(const CallersRecord&) = delete;
    CallersRecord& operator=(const CallersRecord&) = delete;

    CARD_DATA data{};
    Bytes atr;

    /// The n-th allocation from now on finds no memory; 0 for none.
    static void failAllocation(int n);
    /// Looks at a buffer that the product handed over, and frees it. A null pointer is let be.
    static void take(void* buffer, std::size_t size, bool isFilled);
};

}  // namespace fuzz
