#include "reader_seam.h"

#include <algorithm>

namespace cardhost {

ReaderSeam::ReaderSeam(const WinscardCalls& real, const Trace& trace) : real_(real), trace_(trace) {
    seam_.self = this;
    seam_.reconnect = [](void* self, std::uintptr_t card, std::uint32_t shareMode,
                         std::uint32_t protocols, std::uint32_t initialization,
                         std::uint32_t* activeProtocol) -> std::int32_t {
        DWORD protocol = 0;
        const LONG status = static_cast<ReaderSeam*>(self)->real_.reconnect(
            card, shareMode, protocols, initialization, &protocol);
        *activeProtocol = static_cast<std::uint32_t>(protocol);
        return static_cast<std::int32_t>(status);
    };
    seam_.beginTransaction = [](void* self, std::uintptr_t card) -> std::int32_t {
        return static_cast<std::int32_t>(
            static_cast<ReaderSeam*>(self)->real_.beginTransaction(card));
    };
    seam_.endTransaction = [](void* self, std::uintptr_t card,
                              std::uint32_t disposition) -> std::int32_t {
        return static_cast<std::int32_t>(
            static_cast<ReaderSeam*>(self)->real_.endTransaction(card, disposition));
    };
    seam_.status = [](void* self, std::uintptr_t card, std::uint32_t* state,
                      std::uint32_t* protocol, std::uint8_t* atr,
                      std::uint32_t* atrLength) -> std::int32_t {
        DWORD cardState = 0;
        DWORD cardProtocol = 0;
        DWORD length = *atrLength;
        const LONG status = static_cast<ReaderSeam*>(self)->real_.status(
            card, nullptr, nullptr, &cardState, &cardProtocol, atr, &length);
        *state = static_cast<std::uint32_t>(cardState);
        *protocol = static_cast<std::uint32_t>(cardProtocol);
        *atrLength = static_cast<std::uint32_t>(length);
        return static_cast<std::int32_t>(status);
    };
    seam_.transmit = [](void* self, std::uintptr_t card, std::uint32_t protocol,
                        const std::uint8_t* command, std::uint32_t commandLength,
                        std::uint8_t* reply, std::uint32_t* replyLength) -> std::int32_t {
        return static_cast<std::int32_t>(static_cast<ReaderSeam*>(self)->transmit(
            card, protocol, ByteView(command, commandLength), reply, replyLength));
    };
}

LONG ReaderSeam::transmit(SCARDHANDLE card, DWORD protocol, ByteView command, std::uint8_t* reply,
                          std::uint32_t* replyLength) const {
    const SCARD_IO_REQUEST send = {protocol, sizeof(SCARD_IO_REQUEST)};
    const std::uint32_t room = *replyLength;
    DWORD length = room;
    trace_.command(command);
    const LONG status = real_.transmit(card, &send, command.data(),
                                       static_cast<DWORD>(command.size()), nullptr, reply, &length);
    *replyLength = static_cast<std::uint32_t>(length);
    recording::Reply seen;
    seen.failure = static_cast<std::uint32_t>(status);
    if (seen.failure == 0) seen.bytes.assign(reply, reply + std::min<std::size_t>(length, room));
    trace_.reply(seen);
    return status;
}

}  // namespace cardhost
