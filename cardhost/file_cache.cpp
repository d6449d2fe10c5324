#include "file_cache.h"

#include <algorithm>

#include "memory.h"

namespace cardhost {

void FileCache::offerTo(CARD_DATA& record) {
    record.pvCacheContext = this;
    record.pfnCspCacheAddFile = add;
    record.pfnCspCacheLookupFile = lookUp;
    record.pfnCspCacheDeleteFile = remove;
}

DWORD WINAPI FileCache::add(PVOID context, LPWSTR tag, DWORD, PBYTE data, DWORD length) {
    if (context == nullptr || tag == nullptr || (data == nullptr && length > 0)) {
        return static_cast<DWORD>(ERROR_INVALID_PARAMETER);
    }
    static_cast<FileCache*>(context)->files_[tag] = Bytes(data, data + length);
    return 0;
}

DWORD WINAPI FileCache::lookUp(PVOID context, LPWSTR tag, DWORD, PBYTE* data, PDWORD length) {
    if (context == nullptr || tag == nullptr || data == nullptr || length == nullptr) {
        return static_cast<DWORD>(ERROR_INVALID_PARAMETER);
    }
    const auto& files = static_cast<FileCache*>(context)->files_;
    const auto found = files.find(tag);
    if (found == files.end()) return static_cast<DWORD>(ERROR_FILE_NOT_FOUND);
    auto* block = static_cast<PBYTE>(allocate(found->second.size()));
    if (block == nullptr) return static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY);
    std::copy(found->second.begin(), found->second.end(), block);
    *data = block;
    *length = static_cast<DWORD>(found->second.size());
    return 0;
}

DWORD WINAPI FileCache::remove(PVOID context, LPWSTR tag, DWORD) {
    if (context == nullptr || tag == nullptr) return static_cast<DWORD>(ERROR_INVALID_PARAMETER);
    const auto removed = static_cast<FileCache*>(context)->files_.erase(tag);
    return static_cast<DWORD>(removed > 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
}

}  // namespace cardhost
