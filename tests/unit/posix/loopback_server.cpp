#include "posix/loopback_server.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace KelmoraID::testing {
namespace {

int listenOnLoopback(std::uint16_t& port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("no loopback");
    }
    port = ntohs(address.sin_port);
    return listener;
}

}  // namespace

LoopbackServer::LoopbackServer(std::function<void(Peer&)> serve) {
    listener_ = listenOnLoopback(port_);
    if (listen(listener_, 1) != 0) throw std::runtime_error("no loopback");
    thread_ = std::thread([listener = listener_, serve = std::move(serve)] {
        const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) return;
        Peer peer(socket);
        serve(peer);
        close(socket);
    });
}

LoopbackServer::~LoopbackServer() {
    shutdown(listener_, SHUT_RDWR);  // wakes a server that nobody called
    thread_.join();
    close(listener_);
}

std::string LoopbackServer::Peer::readUntil(const std::string& text) {
    std::string got;
    char byte = 0;
    while (!got.ends_with(text) && recv(socket_, &byte, 1, 0) == 1) got += byte;
    return got;
}

std::string LoopbackServer::Peer::read(std::size_t count) {
    std::string got;
    char byte = 0;
    while (got.size() < count && recv(socket_, &byte, 1, 0) == 1) got += byte;
    return got;
}

bool LoopbackServer::Peer::send(const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = ::send(socket_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void LoopbackServer::Peer::waitForEnd() {
    char bytes[4096];
    while (recv(socket_, bytes, sizeof(bytes), 0) > 0) {
    }
}

std::uint16_t deadPort() {
    std::uint16_t port = 0;
    close(listenOnLoopback(port));
    return port;
}

}  // namespace KelmoraID::testing
