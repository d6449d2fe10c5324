// The input of a fuzz target, taken from its front piece by piece, so that seeds can be written by
// hand and by program. An input at its end gives zeros and nothing.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : all_(data, size), rest_(all_) {}

    bool atEnd() const { return rest_.empty(); }
    /// From the first byte again, but for those that `rewindTo` leaves out.
    void rewindTo(std::size_t place) { rest_ = all_.subspan(std::min(place, all_.size())); }
    std::size_t place() const { return all_.size() - rest_.size(); }

    std::uint8_t byte() {
        if (rest_.empty()) return 0;
        const std::uint8_t value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }
    bool flag() { return (byte() & 1) != 0; }
    std::uint16_t word() {
        const std::uint8_t high = byte();
        return static_cast<std::uint16_t>(high << 8 | byte());
    }
    std::uint32_t number() {
        const std::uint32_t high = word();
        return high << 16 | word();
    }
    /// 0 to one less than the count.
    std::size_t below(std::size_t count) { return byte() % count; }
    template <typename List>
    const auto& oneOf(const List& list) {
        return list[below(std::size(list))];
    }

    /// As many bytes, or what is left.
    Bytes bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    /// A length of one byte and that many bytes.
    Bytes block() { return bytes(byte()); }
    /// The same with a length of two bytes.
    Bytes longBlock() { return bytes(word()); }
    std::string text() {
        const Bytes taken = block();
        return {taken.begin(), taken.end()};
    }
    /// UTF-16 without zeros in it.
    std::u16string wideText() {
        std::u16string result;
        for (std::size_t count = byte(); count != 0 && !atEnd(); --count) {
            if (const auto unit = static_cast<char16_t>(word()); unit != 0) result += unit;
        }
        return result;
    }
    Bytes rest() { return bytes(rest_.size()); }

private:
    std::span<const std::uint8_t> all_;
    std::span<const std::uint8_t> rest_;
};

}  // namespace fuzz
