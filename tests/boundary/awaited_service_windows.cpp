// A listener on this machine, spoken to by WinHTTP.
#include "awaited_service.h"

// It has to come ahead of windows.h.
#include <winsock2.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace boundary {
namespace {

SOCKET listener = INVALID_SOCKET;
sockaddr_in place{};
std::atomic<bool> isDone = false;
std::atomic<int> repliesRead = 0;
std::thread server;

// A connection may go at any time: the client has timeouts of its own.
void answer(SOCKET connection, const std::function<void()>& wait) {
    std::string request;
    char part[4'096];
    int count = 1;
    while (!request.ends_with("\"}") && count > 0) {  // The end of what is reported.
        count = recv(connection, part, sizeof(part), 0);
        if (count > 0) request.append(part, static_cast<std::size_t>(count));
    }
    if (count > 0) {
        wait();
        const std::string reply =
            "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}";
        send(connection, reply.data(), static_cast<int>(reply.size()), 0);
        shutdown(connection, SD_SEND);
        // The client has read the reply when it closes in its turn.
        if (recv(connection, part, sizeof(part), 0) == 0) ++repliesRead;
    }
    closesocket(connection);
}

void serve(const std::function<void()>& wait) {
    std::vector<std::thread> connections;
    for (;;) {
        const SOCKET connection = accept(listener, nullptr, nullptr);
        if (isDone || connection == INVALID_SOCKET) {
            closesocket(connection);
            break;
        }
        connections.emplace_back([connection, &wait] { answer(connection, wait); });
    }
    for (std::thread& thread : connections) thread.join();
}

}  // namespace

AwaitedService::AwaitedService(const std::function<void()>& wait) {
    isDone = false;
    repliesRead = 0;
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    listener = socket(AF_INET, SOCK_STREAM, 0);
    place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof(place);
    bind(listener, reinterpret_cast<const sockaddr*>(&place), size);
    listen(listener, SOMAXCONN);
    getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size);  // With the free port.
    server = std::thread([wait] { serve(wait); });
}

AwaitedService::~AwaitedService() {
    isDone = true;
    // So that nobody waits for a connection any more.
    const SOCKET last = socket(AF_INET, SOCK_STREAM, 0);
    connect(last, reinterpret_cast<const sockaddr*>(&place), sizeof(place));
    server.join();
    closesocket(last);
    closesocket(listener);
    WSACleanup();
}

std::string AwaitedService::address() const {
    return "http://127.0.0.1:" + std::to_string(ntohs(place.sin_port));
}

bool AwaitedService::hasReplied() const {
    return repliesRead > 0;
}

}  // namespace boundary
