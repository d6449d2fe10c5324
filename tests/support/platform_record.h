// The platform's record of a card, as the platform fills it, and the memory that it hands out by
// the record's functions. For all programs that call the driver: nothing of a test framework is in
// here.
#pragma once

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "platform/minidriver.h"
#include "platform/wide_text.h"

namespace KelmoraID::testing {

/// The platform's memory, of which there is one in a process. The buffers are counted over all
/// threads; what fails, and the last size, are those of the thread that calls.
class PlatformMemory {
public:
    /// Begins the count of buffers anew; nothing fails.
    static void begin() {
        buffers_ = 0;
        failing_ = 0;
        lastSize_ = 0;
    }
    /// The n-th allocation from now on finds no memory; 0 for none.
    static void failNth(int n) { failing_ = n; }
    /// Buffers that were not given back.
    static int liveBuffers() { return buffers_; }
    /// The size that was last asked for.
    static std::size_t lastSize() { return lastSize_; }
    /// From now on the sizes asked for are kept, those of failed allocations too; takeSizes empties
    /// the list. For a program of one thread.
    static void noteSizes() {
        isNoted_ = true;
        sizes_.clear();
    }
    static std::vector<std::size_t> takeSizes() { return std::exchange(sizes_, {}); }

    // The functions of a record. What the platform allocates comes with no promise about its
    // content.
    static LPVOID WINAPI allocate(SIZE_T size) {
        lastSize_ = size;
        if (isNoted_) sizes_.push_back(size);
        if (failing_ != 0 && --failing_ == 0) return nullptr;
        void* memory = std::malloc(size == 0 ? 1 : size);
        if (memory == nullptr) std::abort();  // No driver asks for a size that is not to be had.
        std::memset(memory, 0xCD, size);
        ++buffers_;
        return memory;
    }
    static LPVOID WINAPI reallocate(LPVOID address, SIZE_T size) {
        return std::realloc(address, size);
    }
    static void WINAPI release(LPVOID address) {
        if (address != nullptr) --buffers_;
        std::free(address);
    }

private:
    static inline std::atomic<int> buffers_ = 0;
    static inline constinit thread_local int failing_ = 0;
    static inline constinit thread_local std::size_t lastSize_ = 0;
    static inline bool isNoted_ = false;
    static inline std::vector<std::size_t> sizes_;
};

struct MemoryFunctions {
    PFN_CSP_ALLOC allocate = PlatformMemory::allocate;
    PFN_CSP_REALLOC reallocate = PlatformMemory::reallocate;
    PFN_CSP_FREE release = PlatformMemory::release;
};

/// Fills a record of version 7 for an acquisition.
/// @param atr  stays the caller's, for as long as the record is in use
inline void fillRecord(CARD_DATA& data, std::span<BYTE> atr, SCARDCONTEXT context, SCARDHANDLE card,
                       const MemoryFunctions& memory = {}) {
    static WCHAR name[] = WIDE_TEXT("FINEID");
    data.dwVersion = 7;
    data.pbAtr = atr.data();
    data.cbAtr = static_cast<DWORD>(atr.size());
    data.pwszCardName = name;
    data.pfnCspAlloc = memory.allocate;
    data.pfnCspReAlloc = memory.reallocate;
    data.pfnCspFree = memory.release;
    data.hSCardCtx = context;
    data.hScard = card;
}

}  // namespace KelmoraID::testing
