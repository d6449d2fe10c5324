// A directory service whose replies have to be waited for, for tests of what goes on meanwhile.
// Only natively, where WinHTTP is scripted; on Windows nobody listens, and each report ends at
// once.
#pragma once

#include <functional>

namespace boundary {

class AwaitedService {
public:
    /// @param wait  what each reply waits for, on the thread that waits for it; returns then
    explicit AwaitedService(const std::function<void()>& wait);
    ~AwaitedService();
    AwaitedService(const AwaitedService&) = delete;
    AwaitedService& operator=(const AwaitedService&) = delete;

    /// Whether reports come to their end; natively those that have.
    bool hasReplied() const;
};

}  // namespace boundary
