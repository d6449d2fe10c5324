#include "directory_query.h"

#include <array>

#include "exit_codes.h"
#include "status_names.h"
#include "tlv.h"

namespace cardhost {

namespace {

constexpr const char* call = "Query of the PIN and key directories, past the driver";
constexpr std::size_t largestFile = 4096;
constexpr std::array<std::uint8_t, 4> objectDirectory{0x3F, 0x00, 0x50, 0x31};
constexpr std::array<std::uint8_t, 4> selectForms{0x00, 0x02, 0x01, 0x09};
constexpr std::uint32_t privateKeys = 0xA0;
constexpr std::uint32_t authenticationObjects = 0xA8;

Bytes exchanged(const ConnectedCard& card, ByteView command) {
    recording::Reply reply = card.exchange(command);
    if (reply.failure != 0) {
        throw Failure(ExitCode::notFound, "the card does not answer: " + statusText(reply.failure));
    }
    return std::move(reply.bytes);
}

bool isDone(const Bytes& reply) {
    return reply.size() >= 2 && reply[reply.size() - 2] == 0x90 && reply.back() == 0x00;
}

/// By identifier alone, and where the card has another form for it, by that (ISO/IEC 7816-4,
/// 11.2.2).
bool select(const ConnectedCard& card, ByteView identifier) {
    for (const std::uint8_t form : selectForms) {
        const std::uint8_t command[] = {0x00, 0xA4, form, 0x0C, 0x02, identifier[0], identifier[1]};
        if (isDone(exchanged(card, command))) return true;
    }
    return false;
}

Bytes currentFile(const ConnectedCard& card) {
    Bytes content;
    while (content.size() < largestFile) {
        std::uint8_t command[] = {0x00, 0xB0, static_cast<std::uint8_t>(content.size() >> 8),
                                  static_cast<std::uint8_t>(content.size()), 0x00};
        Bytes reply = exchanged(card, command);
        if (reply.size() == 2 && reply[0] == 0x6C) {  // so many, and no more
            command[4] = reply[1];
            reply = exchanged(card, command);
        }
        if (!isDone(reply) || reply.size() == 2) break;
        content.insert(content.end(), reply.begin(), reply.end() - 2);
    }
    return content;
}

/// The file at the end of a path of identifiers; empty where there is none to be had.
Bytes fileAt(const ConnectedCard& card, ByteView path) {
    for (std::size_t at = 0; at + 1 < path.size(); at += 2) {
        if (!select(card, path.subspan(at, 2))) return {};
    }
    return currentFile(card);
}

/// The value of the first element of that tag; empty where there is none.
ByteView valueOf(ByteView bytes, std::uint32_t tag) {
    while (const auto element = readTlv(bytes)) {
        if (element->tag == tag) return element->value;
        bytes = bytes.subspan(element->size());
    }
    return {};
}

}  // namespace

std::optional<int> askDirectories(const ConnectedCard& card, const Trace& trace) {
    constexpr std::uint32_t sequence = 0x30;
    constexpr std::uint32_t octetString = 0x04;
    if (!card.hasCall(call)) return std::nullopt;
    trace.entryPoint(call);
    const Bytes objects = fileAt(card, objectDirectory);
    int read = 0;
    for (const std::uint32_t kind : {authenticationObjects, privateKeys}) {
        const ByteView path = valueOf(valueOf(valueOf(objects, kind), sequence), octetString);
        if (!path.empty() && !fileAt(card, path).empty()) ++read;
    }
    trace.result(0);
    return read;
}

}  // namespace cardhost
