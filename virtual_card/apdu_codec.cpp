#include "virtual_card/apdu_codec.h"

namespace virtual_card {

namespace {

constexpr std::size_t headerSize = 4;

std::size_t expectedLength(std::uint8_t le) {
    return le == 0 ? 256 : le;
}

}  // namespace

std::optional<Command> parseCommand(ByteView bytes) {
    if (bytes.size() < headerSize) return std::nullopt;
    Command command{bytes[0], bytes[1], bytes[2], bytes[3], {}, {}};
    ByteView body = bytes.subspan(headerSize);
    if (body.empty()) return command;
    if (body.size() == 1) {
        command.le = expectedLength(body[0]);
        return command;
    }
    std::size_t lc = body[0];
    if (lc == 0) return std::nullopt;  // the mark of an extended form
    if (body.size() != 1 + lc && body.size() != 2 + lc) return std::nullopt;
    ByteView data = body.subspan(1, lc);
    command.data.assign(data.begin(), data.end());
    if (body.size() == 2 + lc) command.le = expectedLength(body.back());
    return command;
}

Bytes encodeReply(const Reply& reply) {
    Bytes bytes = reply.data;
    bytes.push_back(static_cast<std::uint8_t>(reply.status >> 8));
    bytes.push_back(static_cast<std::uint8_t>(reply.status & 0xFF));
    return bytes;
}

}  // namespace virtual_card
