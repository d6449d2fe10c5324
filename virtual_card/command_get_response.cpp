#include <algorithm>

#include "virtual_card/commands.h"

namespace virtual_card {

Reply getResponse(CardState& card, const Command& command) {
    if (command.p1 != 0x00 || command.p2 != 0x00) return {{}, sw::incorrectP1P2};
    if (!command.data.empty()) return {{}, sw::wrongLength};
    Bytes& waiting = card.waiting.data;
    if (waiting.empty()) return {{}, sw::conditionsNotSatisfied};

    const std::size_t wanted = command.le.value_or(256);
    // Le 00 takes what there is; another Le that is too large is told the right one (6Cxx).
    if (wanted > waiting.size() && wanted != 256) {
        return {{}, static_cast<std::uint16_t>(0x6C00 | waiting.size())};
    }
    const auto end =
        waiting.begin() + static_cast<std::ptrdiff_t>(std::min(wanted, waiting.size()));
    Reply reply{Bytes(waiting.begin(), end)};
    waiting.erase(waiting.begin(), end);
    reply.status = waiting.empty() ? card.waiting.status : sw::bytesWaiting(waiting.size());
    return reply;
}

}  // namespace virtual_card
