// The memory that the platform lends a minidriver, and what a minidriver gives back in it.
#pragma once

#include <cstdlib>
#include <cstring>

#include "bytes.h"

namespace cardhost {

inline LPVOID WINAPI allocate(SIZE_T size) {
    return std::malloc(size);
}
inline LPVOID WINAPI reallocate(LPVOID block, SIZE_T size) {
    return std::realloc(block, size);
}
inline void WINAPI release(LPVOID block) {
    std::free(block);
}

/// The bytes of a block that a minidriver allocated; the block is released.
inline Bytes takeBlock(PBYTE block, DWORD length) {
    Bytes bytes;
    if (block != nullptr) bytes.assign(block, block + length);
    release(block);
    return bytes;
}

}  // namespace cardhost
