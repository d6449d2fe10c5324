// The objects behind a kind of handle. A handle is a number that was given out and not yet closed;
// any other number reaches nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace KelmoraID::platform {

template <typename Object>
class HandleTable {
public:
    std::uintptr_t add(std::shared_ptr<Object> object) {
        const std::lock_guard lock(mutex_);
        const std::uintptr_t handle = next_;
        objects_.emplace(handle, std::move(object));
        next_ += step;
        return handle;
    }
    /// The object, or null for a handle that is none of this table.
    std::shared_ptr<Object> find(std::uintptr_t handle) {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : found->second;
    }
    std::shared_ptr<Object> find(const void* handle) {
        return find(reinterpret_cast<std::uintptr_t>(handle));
    }
    /// Takes the object out of the table, or gives null.
    std::shared_ptr<Object> remove(std::uintptr_t handle) {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) return nullptr;
        std::shared_ptr<Object> object = std::move(found->second);
        objects_.erase(found);
        return object;
    }
    std::shared_ptr<Object> remove(const void* handle) {
        return remove(reinterpret_cast<std::uintptr_t>(handle));
    }

private:
    // Handles look like Windows' own: small, never 0, never reused.
    static constexpr std::uintptr_t step = 4;
    std::mutex mutex_;
    std::unordered_map<std::uintptr_t, std::shared_ptr<Object>> objects_;
    std::uintptr_t next_ = 0x10000;
};

}  // namespace KelmoraID::platform
