#include "card_session.h"

#include <stdexcept>

namespace virtual_card {

namespace {

Reply replyOf(const Bytes& bytes) {
    if (bytes.size() < 2) throw std::logic_error("a reply without a status word");
    Bytes data(bytes.begin(), bytes.end() - 2);
    auto status = static_cast<std::uint16_t>((bytes[bytes.size() - 2] << 8) | bytes.back());
    return {std::move(data), status};
}

}  // namespace

Bytes commandOf(std::string_view header, ByteView data, std::optional<std::uint8_t> le) {
    Bytes command = fromHex(header);
    if (!data.empty()) command.push_back(static_cast<std::uint8_t>(data.size()));
    append(command, data);
    if (le) command.push_back(*le);
    return command;
}

std::string CardSession::send(std::string_view command) {
    return toHex(card.transmit(fromHex(command)));
}

Reply CardSession::exchange(ByteView command) {
    Reply all = replyOf(card.transmit(command));
    while ((all.status >> 8) == 0x61) {
        Bytes getResponse = fromHex("00C00000");
        getResponse.push_back(static_cast<std::uint8_t>(all.status & 0xFF));
        Reply next = replyOf(card.transmit(getResponse));
        append(all.data, next.data);
        all.status = next.status;
    }
    return all;
}

void CardSession::selectRoot() {
    EXPECT_EQ(send("00A4000C023F00"), "9000");
}

void CardSession::selectEsign() {
    selectRoot();
    EXPECT_EQ(send("00A4000C025016"), "9000");
}

void CardSession::selectDirectoryOf(PinRole role) {
    if (pin(role).directory == esignDirectory) {
        selectEsign();
    } else {
        selectRoot();
    }
}

const PinRow& CardSession::pin(PinRole role) const {
    for (const PinRow& row : card.generation().pins) {
        if (row.role == role) return row;
    }
    throw std::logic_error("no such PIN");
}

std::uint16_t CardSession::verify(PinRole role) {
    return verify(role, pin(role).value);
}

std::uint16_t CardSession::verify(PinRole role, std::string_view value) {
    selectDirectoryOf(role);
    Bytes data(value.begin(), value.end());
    data.resize(std::max(data.size(), card.generation().pinBlockLength), 0x00);
    Bytes header = fromHex("002000");
    header.push_back(pin(role).reference);
    return exchange(commandOf(toHex(header), data)).status;
}

std::uint16_t CardSession::queryPin(PinRole role) {
    selectDirectoryOf(role);
    Bytes command = fromHex("002000");
    command.push_back(pin(role).reference);
    return exchange(command).status;
}

Bytes CardSession::readFile(std::string_view path) {
    Bytes identifiers = fromHex(path);
    Reply selected;
    for (std::size_t position = 0; position < identifiers.size(); position += 2) {
        selected = exchange(
            commandOf("00A40004", ByteView(identifiers).subspan(position, 2), std::uint8_t{0}));
        EXPECT_EQ(selected.status, sw::ok) << path;
    }
    Bytes content;
    for (;;) {
        Bytes command = fromHex("00B0");
        command.push_back(static_cast<std::uint8_t>(content.size() >> 8));
        command.push_back(static_cast<std::uint8_t>(content.size() & 0xFF));
        command.push_back(0x00);
        Reply part = exchange(command);
        if (part.status != sw::ok) return content;
        append(content, part.data);
    }
}

std::uint16_t CardSession::setSignature(std::uint8_t keyReference, std::uint8_t algorithm) {
    return exchange(commandOf("002241B6", Bytes{0x84, 0x01, keyReference, 0x80, 0x01, algorithm},
                              std::uint8_t{0}))
        .status;
}

Reply CardSession::sign(ByteView hash) {
    if (card.generation().needsPsoHash) {
        Bytes data{0x90, static_cast<std::uint8_t>(hash.size())};
        append(data, hash);
        Reply reply = exchange(commandOf("002A90A0", data, std::uint8_t{0}));
        if (reply.status != sw::ok) return reply;
    }
    return exchange(commandOf("002A9E9A", hash, std::uint8_t{0}));
}

}  // namespace virtual_card
