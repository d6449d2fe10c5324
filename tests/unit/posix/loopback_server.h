// A server on this machine's loopback for one connection, written out byte by byte by its test.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace KelmoraID::testing {

class LoopbackServer {
public:
    /// The connection as the server's side of a test sees it.
    class Peer {
    public:
        explicit Peer(int socket) : socket_(socket) {}
        /// Reads until the text has come, or to the end.
        std::string readUntil(const std::string& text);
        /// Reads that many bytes, or to the end.
        std::string read(std::size_t count);
        /// Sends all of it; false where the other side has gone.
        bool send(const std::string& text);
        /// Waits until the other side goes.
        void waitForEnd();

    private:
        int socket_;
    };

    /// Accepts one connection, and runs that for it in a thread.
    explicit LoopbackServer(std::function<void(Peer&)> serve);
    /// Waits for the thread.
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    std::uint16_t port() const { return port_; }

private:
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::thread thread_;
};

/// A port of the loopback on which nobody listens.
std::uint16_t deadPort();

}  // namespace KelmoraID::testing
