#include "doctor/nearest_atr.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "card_types.h"

namespace cardhost::doctor {

namespace {

/// Beyond this an ATR is simply that of another card.
constexpr std::size_t farthest = 3;

/// How many bytes have to be changed, put in or taken out to make one of the other.
std::size_t distance(ByteView left, ByteView right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t changed = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string differenceText(ByteView atr, const CardGeneration& generation, std::size_t away) {
    const ByteView known = generation.atr;
    if (away > 1) return fmt::format("{} bytes away from type {}", away, generation.type);
    if (atr.size() != known.size()) {
        return fmt::format("one byte {} than type {}",
                           atr.size() < known.size() ? "shorter" : "longer", generation.type);
    }
    const auto [at, there] = std::mismatch(atr.begin(), atr.end(), known.begin());
    const auto bits = std::popcount(static_cast<unsigned>(*at ^ *there));
    return fmt::format("one {} away from type {} (byte {} is {:02X}, there {:02X})",
                       bits == 1 ? "bit" : "byte", generation.type, at - atr.begin() + 1, *at,
                       *there);
}

}  // namespace

std::string nearestAtrText(ByteView atr) {
    // A longer ATR than any standard allows is none, and not worth the time.
    constexpr std::size_t longestAtr = 33;  // ISO/IEC 7816-3, 8.2.1
    if (atr.size() > longestAtr) return {};
    std::size_t nearest = farthest + 1;
    std::string text;
    for (const CardGeneration& generation : generations()) {
        const std::size_t away = distance(atr, generation.atr);
        if (away >= nearest) continue;
        nearest = away;
        text = differenceText(atr, generation, away);
    }
    return text;
}

}  // namespace cardhost::doctor
