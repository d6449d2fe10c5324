// Several readers side by side, with a card in each.
#pragma once

#include <vector>

#include "platform_side.h"

namespace boundary {

/// One winscard over several readers: a call goes to the reader whose card's handle it names.
class Readers {
public:
    Readers() {
        seam_.self = this;
        seam_.status = [](void* self, std::uintptr_t card, std::uint32_t* state,
                          std::uint32_t* protocol, std::uint8_t* atr, std::uint32_t* atrLength) {
            return call(self, card, [&](const CardSeam& seam) {
                return seam.status(seam.self, card, state, protocol, atr, atrLength);
            });
        };
        seam_.reconnect = [](void* self, std::uintptr_t card, std::uint32_t shareMode,
                             std::uint32_t protocols, std::uint32_t initialization,
                             std::uint32_t* activeProtocol) {
            return call(self, card, [&](const CardSeam& seam) {
                return seam.reconnect(seam.self, card, shareMode, protocols, initialization,
                                      activeProtocol);
            });
        };
        seam_.transmit = [](void* self, std::uintptr_t card, std::uint32_t protocol,
                            const std::uint8_t* command, std::uint32_t commandLength,
                            std::uint8_t* reply, std::uint32_t* replyLength) {
            return call(self, card, [&](const CardSeam& seam) {
                return seam.transmit(seam.self, card, protocol, command, commandLength, reply,
                                     replyLength);
            });
        };
    }

    /// Gives the card handles that no other one has.
    void add(PlatformSide& card) {
        readers_.push_back(&card.reader);
        const std::uintptr_t number = readers_.size();
        card.reader.setHandles(0xCA000 + number, 0xC0000 + number);
        card.data.hScard = card.reader.cardHandle();
        card.data.hSCardCtx = card.reader.contextHandle();
        putBehindTheSeam(&seam_);
    }

private:
    template <typename Call>
    static std::int32_t call(void* self, std::uintptr_t card, Call act) {
        for (const virtual_card::VirtualReader* reader : static_cast<Readers*>(self)->readers_) {
            if (reader->cardHandle() == card) return act(*reader->seam());
        }
        return static_cast<std::int32_t>(virtual_card::pcsc::invalidHandle);
    }

    CardSeam seam_{};
    std::vector<virtual_card::VirtualReader*> readers_;
};

}  // namespace boundary
