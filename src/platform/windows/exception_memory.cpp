// The memory of thrown exceptions, in place of what GCC's library has for it: that takes 71 KiB of
// heap when the DLL is loaded, for exceptions that are thrown when there is no memory. Here such a
// reserve is part of the image, whose pages nobody touches until then.
// Nothing in the DLL may use std::exception_ptr: its memory comes from the library's file that this
// one replaces, and both cannot be linked.
#include <exception>

#ifdef __GLIBCXX__
#include <unwind.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <typeinfo>

namespace {

// The exception header of the Itanium C++ ABI, 2.2.1.
struct ExceptionHeader {
    std::type_info* exceptionType;
    void (*exceptionDestructor)(void*);
    void (*unexpectedHandler)();
    void (*terminateHandler)();
    void* nextException;
    int handlerCount;
    int handlerSwitchValue;
    const unsigned char* actionRecord;
    const unsigned char* languageSpecificData;
    _Unwind_Ptr catchTemp;
    void* adjustedPointer;
    _Unwind_Exception unwindHeader;
};

// What GCC's library keeps ahead of a thrown object: the count of those who hold it, and the
// header.
struct CountedHeader {
    int uses;
    ExceptionHeader header;
};

// One exception each. The largest that is thrown here is a TransmitError, of five words.
struct alignas(_Unwind_Exception) ReservedBlock {
    unsigned char bytes[sizeof(CountedHeader) + 96];
};
constexpr std::size_t reservedBlocks = 64;
ReservedBlock reserve[reservedBlocks];
std::atomic_flag taken[reservedBlocks];

void* takeReserved(std::size_t bytes) noexcept {
    if (bytes > sizeof(ReservedBlock)) return nullptr;
    for (std::size_t i = 0; i < reservedBlocks; ++i) {
        if (!taken[i].test_and_set(std::memory_order_acquire)) return reserve[i].bytes;
    }
    return nullptr;
}

void* take(std::size_t bytes) noexcept {
    void* block = std::malloc(bytes);
    if (block == nullptr) block = takeReserved(bytes);
    if (block == nullptr) std::terminate();
    return std::memset(block, 0, sizeof(CountedHeader));
}

void giveBack(void* block) noexcept {
    const auto* reserved = static_cast<ReservedBlock*>(block);
    if (std::less_equal<>()(&reserve[0], reserved) &&
        std::less<>()(reserved, reserve + reservedBlocks)) {
        taken[reserved - reserve].clear(std::memory_order_release);
    } else {
        std::free(block);
    }
}

}  // namespace

extern "C" {

// The Itanium C++ ABI, exception handling, 2.4.2: memory for an object of so many bytes that is
// about to be thrown. Ends the process, by std::terminate, where there is no memory and the reserve
// is used up.
void* __cxa_allocate_exception(std::size_t bytes) noexcept {
    return static_cast<CountedHeader*>(take(sizeof(CountedHeader) + bytes)) + 1;
}

// 2.4.3: gives back what the function above returned.
void __cxa_free_exception(void* thrown) noexcept {
    giveBack(static_cast<CountedHeader*>(thrown) - 1);
}

}  // extern "C"
#endif
