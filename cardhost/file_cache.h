// The platform's cache of a card's files, which a minidriver may use through three callbacks of
// CARD_DATA. Here it lives as long as the program.
#pragma once

#include <map>

#include "bytes.h"

namespace cardhost {

class FileCache {
public:
    /// Sets the three callbacks and the context of a record; the cache has to outlive its use.
    void offerTo(CARD_DATA& record);

private:
    static DWORD WINAPI add(PVOID context, LPWSTR tag, DWORD flags, PBYTE data, DWORD length);
    static DWORD WINAPI lookUp(PVOID context, LPWSTR tag, DWORD flags, PBYTE* data, PDWORD length);
    static DWORD WINAPI remove(PVOID context, LPWSTR tag, DWORD flags);

    std::map<WideText, Bytes> files_;
};

}  // namespace cardhost
