// Standing between the driver and a reader with a card.
#pragma once

#include <functional>

#include "platform_side.h"

namespace boundary {

/// Each command of the driver goes through a function, for as long as the object lives. What it
/// does not answer itself it passes on.
class Between {
public:
    /// The reply and its room, and the PC/SC code, as SCardTransmit has them.
    using Answer = std::function<std::int32_t(Between& between, const Bytes& command,
                                              std::uint8_t* reply, std::uint32_t* replyLength)>;

    Between(PlatformSide& card, Answer answer)
        : inner_(*card.reader.seam()),
          seam_(inner_),
          card_(card.reader.cardHandle()),
          answer_(std::move(answer)) {
        // All calls of the seam that a driver makes: the reader's own need its own self.
        seam_.self = this;
        seam_.transmit = [](void* self, std::uintptr_t, std::uint32_t protocol,
                            const std::uint8_t* command, std::uint32_t length, std::uint8_t* reply,
                            std::uint32_t* replyLength) {
            auto& between = *static_cast<Between*>(self);
            between.protocol_ = protocol;
            return between.answer_(between, Bytes(command, command + length), reply, replyLength);
        };
        seam_.status = [](void* self, std::uintptr_t handle, std::uint32_t* state,
                          std::uint32_t* protocol, std::uint8_t* atr, std::uint32_t* atrLength) {
            const CardSeam& inner = static_cast<Between*>(self)->inner_;
            return inner.status(inner.self, handle, state, protocol, atr, atrLength);
        };
        seam_.reconnect = [](void* self, std::uintptr_t handle, std::uint32_t shareMode,
                             std::uint32_t protocols, std::uint32_t initialization,
                             std::uint32_t* activeProtocol) {
            const CardSeam& inner = static_cast<Between*>(self)->inner_;
            return inner.reconnect(inner.self, handle, shareMode, protocols, initialization,
                                   activeProtocol);
        };
        putBehindTheSeam(&seam_);
    }
    ~Between() { putBehindTheSeam(&inner_); }
    Between(const Between&) = delete;
    Between& operator=(const Between&) = delete;

    /// Passes a command on, by the protocol of the one that has come.
    std::int32_t pass(const Bytes& command, std::uint8_t* reply, std::uint32_t* replyLength) {
        return inner_.transmit(inner_.self, card_, protocol_, command.data(),
                               static_cast<std::uint32_t>(command.size()), reply, replyLength);
    }

private:
    const CardSeam& inner_;
    CardSeam seam_;
    std::uintptr_t card_;
    std::uint32_t protocol_ = 0;
    Answer answer_;
};

}  // namespace boundary
