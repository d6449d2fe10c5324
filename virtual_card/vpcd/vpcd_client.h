// The connection to the virtual reader driver of a PC/SC daemon (vpcd): a TCP connection over which
// the driver asks and the card answers. Each message is a two-byte big-endian length and that many
// bytes; a message of one byte is a control, a longer one a command APDU.
#pragma once

#include <optional>
#include <string>

#include "virtual_card/bytes.h"

namespace virtual_card {

class VpcdClient {
public:
    /// Connects. @throws std::runtime_error with a text for the user when that fails
    VpcdClient(const std::string& host, const std::string& port);
    ~VpcdClient();
    VpcdClient(const VpcdClient&) = delete;
    VpcdClient& operator=(const VpcdClient&) = delete;

    /// The next message. No value when the driver closed the connection, or when `stop` becomes
    /// readable, which ends the waiting. @throws std::runtime_error when the connection breaks
    std::optional<Bytes> receive(int stop);
    /// @throws std::runtime_error when the connection breaks
    void send(ByteView message);

private:
    bool readAll(std::uint8_t* to, std::size_t count, int stop);

    int socket_;
};

}  // namespace virtual_card
