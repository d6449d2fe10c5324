#include "pin_query.h"

#include <fmt/format.h>

#include "card_types.h"
#include "virtual_card/generations.h"

namespace cardhost {

namespace {

constexpr unsigned statusOk = 0x9000;
constexpr unsigned statusBlocked = 0x6983;

const virtual_card::PinRow* rowOf(const ConnectedCard& card, PIN_ID pin) {
    const CardGeneration* known = generationOf(card.atr());
    const auto* generation = known == nullptr ? nullptr : virtual_card::findGeneration(known->type);
    if (generation == nullptr) return nullptr;
    const auto role =
        pin == 1 ? virtual_card::PinRole::Authentication : virtual_card::PinRole::Signature;
    for (const auto& row : generation->pins) {
        if (row.role == role) return &row;
    }
    return nullptr;
}

/// The status word of a command; 0 where none came.
unsigned statusWord(const ConnectedCard& card, const Bytes& command) {
    const recording::Reply reply = card.exchange(command);
    const std::size_t size = reply.bytes.size();
    if (reply.failure != 0 || size < 2) return 0;
    return static_cast<unsigned>(reply.bytes[size - 2] << 8 | reply.bytes[size - 1]);
}

/// By identifier, and where a card does not take that, as a directory below.
bool select(const ConnectedCard& card, std::uint16_t directory) {
    const auto high = static_cast<std::uint8_t>(directory >> 8);
    const auto low = static_cast<std::uint8_t>(directory);
    return statusWord(card, {0x00, 0xA4, 0x00, 0x0C, 0x02, high, low}) == statusOk ||
           statusWord(card, {0x00, 0xA4, 0x01, 0x0C, 0x02, high, low}) == statusOk;
}

std::optional<unsigned> query(const ConnectedCard& card, const virtual_card::PinRow& row) {
    constexpr std::uint16_t masterFile = 0x3F00;
    if (!select(card, masterFile)) return std::nullopt;
    if (row.directory != masterFile && !select(card, row.directory)) return std::nullopt;
    const unsigned word = statusWord(card, {0x00, 0x20, 0x00, row.reference});
    if ((word & 0xFFF0) == 0x63C0) return word & 0x0F;
    return word == statusBlocked ? std::optional(0U) : std::nullopt;
}

}  // namespace

std::optional<unsigned> triesLeft(const ConnectedCard& card, PIN_ID pin, const Trace& trace) {
    const virtual_card::PinRow* row = rowOf(card, pin);
    if (row == nullptr) return std::nullopt;
    trace.entryPoint(fmt::format("Query of PIN {}, past the driver", pin));
    const auto tries = query(card, *row);
    trace.result(0);
    return tries;
}

}  // namespace cardhost
