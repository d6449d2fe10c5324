#include "vpcd_client.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace virtual_card {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

int openSocket(const addrinfo& address) {
    int made = ::socket(address.ai_family, address.ai_socktype, address.ai_protocol);
    if (made < 0) return -1;
    if (::connect(made, address.ai_addr, address.ai_addrlen) == 0) return made;
    int reason = errno;
    ::close(made);
    errno = reason;
    return -1;
}

void setTcpOption(int socket, int option) {
    int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, option, &on, sizeof on);
}

}  // namespace

VpcdClient::VpcdClient(const std::string& host, const std::string& port) : socket_(-1) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (int code = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); code != 0) {
        throw std::runtime_error("cannot resolve '" + host + "', port '" + port +
                                 "': " + ::gai_strerror(code));
    }
    for (const addrinfo* address = found; address != nullptr && socket_ < 0;
         address = address->ai_next) {
        socket_ = openSocket(*address);
    }
    ::freeaddrinfo(found);
    if (socket_ < 0) fail("cannot reach the virtual reader driver at " + host + ", port " + port);
    setTcpOption(socket_, TCP_NODELAY);
}

VpcdClient::~VpcdClient() {
    ::close(socket_);
}

bool VpcdClient::readAll(std::uint8_t* to, std::size_t count, int stop) {
    std::size_t done = 0;
    while (done < count) {
        // The driver sends a length and its bytes apart: without this the second waits for the
        // acknowledgement of the first, and the system turns it off again by itself.
        setTcpOption(socket_, TCP_QUICKACK);
        pollfd waiting[] = {{socket_, POLLIN, 0}, {stop, POLLIN, 0}};
        if (::poll(waiting, 2, -1) < 0) {
            if (errno == EINTR) continue;
            fail("waiting for the virtual reader driver failed");
        }
        if (waiting[1].revents != 0) return false;
        ssize_t got = ::recv(socket_, to + done, count - done, 0);
        if (got == 0) return false;
        if (got < 0) {
            if (errno == EINTR) continue;
            fail("the connection to the virtual reader driver broke");
        }
        done += static_cast<std::size_t>(got);
    }
    return true;
}

std::optional<Bytes> VpcdClient::receive(int stop) {
    std::uint8_t length[2];
    if (!readAll(length, sizeof length, stop)) return std::nullopt;
    Bytes message(static_cast<std::size_t>(length[0]) * 256 + length[1]);
    if (!readAll(message.data(), message.size(), stop)) return std::nullopt;
    return message;
}

void VpcdClient::send(ByteView message) {
    if (message.size() > 0xFFFF) throw std::length_error("a reply of more than 65535 bytes");
    Bytes bytes{static_cast<std::uint8_t>(message.size() >> 8),
                static_cast<std::uint8_t>(message.size() & 0xFF)};
    append(bytes, message);
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t sent = ::send(socket_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            fail("the connection to the virtual reader driver broke");
        }
        done += static_cast<std::size_t>(sent);
    }
}

}  // namespace virtual_card
