// A directory service whose replies have to be waited for, for tests of what goes on meanwhile.
// Natively WinHTTP is scripted; on Windows the service listens on this machine.
#pragma once

#include <functional>
#include <string>

namespace boundary {

class AwaitedService {
public:
    /// @param wait  what each reply waits for; returns then
    explicit AwaitedService(const std::function<void()>& wait);
    ~AwaitedService();
    AwaitedService(const AwaitedService&) = delete;
    AwaitedService& operator=(const AwaitedService&) = delete;

    /// As the setting wants it.
    std::string address() const;
    /// Whether a reply has been read to its end.
    bool hasReplied() const;
};

}  // namespace boundary
