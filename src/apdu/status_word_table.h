// The state of the status-word lookup: which empty rows it has made so far.
#pragma once

#include <array>
#include <atomic>

#include "apdu/status_words.h"

namespace KelmoraID {

/// One for the process stands behind lookupStatusWord. Safe to use from several threads at a time.
class StatusWordTable {
public:
    constexpr StatusWordTable() = default;
    StatusWordTable(const StatusWordTable&) = delete;
    StatusWordTable& operator=(const StatusWordTable&) = delete;

    /// As lookupStatusWord.
    StatusWordInfo lookup(std::uint16_t Sw1Sw2);

private:
    std::array<std::atomic<bool>, 256> hasEmptyRow_{};  ///< by SW1
};

}  // namespace KelmoraID
