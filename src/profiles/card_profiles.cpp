#include "profiles/card_profiles.h"

#include <algorithm>
#include <array>

namespace KelmoraID {
namespace {

constexpr std::array<BYTE, 22> atr3{0x3B, 0xDD, 0x96, 0x00, 0x80, 0x31, 0xFE, 0x45,
                                    0x00, 0x31, 0xB8, 0x64, 0x04, 0x29, 0xEC, 0xC1,
                                    0x73, 0x94, 0x01, 0x80, 0x82, 0x48};
constexpr std::array<BYTE, 20> atr4{0x3B, 0x7F, 0x96, 0x00, 0x00, 0x80, 0x31, 0xB8, 0x65, 0xB0,
                                    0x85, 0x05, 0x00, 0x11, 0x12, 0x24, 0x60, 0x82, 0x90, 0x00};
constexpr std::array<BYTE, 20> atr5{0x3B, 0x7F, 0x96, 0x00, 0x00, 0x80, 0x31, 0xB8, 0x65, 0xB0,
                                    0x85, 0x04, 0x02, 0x1B, 0x12, 0x00, 0xF6, 0x82, 0x90, 0x00};
constexpr std::array<BYTE, 23> atr6{0x3B, 0xDF, 0x96, 0x00, 0x80, 0x31, 0xFE, 0x45,
                                    0x00, 0x31, 0xB8, 0x64, 0x04, 0x29, 0xEC, 0xC1,
                                    0x73, 0x94, 0x01, 0x80, 0x82, 0x90, 0x00};
constexpr std::array<BYTE, 20> atr7{0x3B, 0x7F, 0x96, 0x00, 0x00, 0x80, 0x31, 0xB8, 0x65, 0xB0,
                                    0x85, 0x03, 0x00, 0xEF, 0x12, 0x00, 0xF6, 0x82, 0x90, 0x00};
constexpr std::array<BYTE, 22> atr8{0x3B, 0xDD, 0x96, 0x00, 0x80, 0x31, 0xFE, 0x45,
                                    0x00, 0x31, 0xB8, 0x64, 0x04, 0x29, 0xEC, 0xC1,
                                    0x73, 0x94, 0x01, 0x80, 0x83, 0x49};

// clang-format off
constexpr auto cards = std::to_array<CardProfile>({
    //                     second  PINs: user, administrator,  VERIFY  limits in  ESIGN  PSO    Le of  00 ahead
    // type          ATR   key     signature                   offset  directory  P1 00  HASH   sign.  of point
    {CardType::type3, atr3, false, 0x11, 0x12, 0x95,           0x00,   false,     false, false, 0x00,  false},
    {CardType::type4, atr4, true,  0x11, 0x83, 0x82,           0x00,   false,     true,  true,  0x60,  false},
    {CardType::type5, atr5, true,  0x11, 0x83, 0x82,           0x00,   false,     true,  true,  0x40,  false},
    {CardType::type6, atr6, false, 0x01, 0x02, 0x01,           0x80,   false,     false, false, 0x00,  false},
    {CardType::type7, atr7, true,  0x11, 0x83, 0x82,           0x00,   false,     true,  true,  0x40,  false},
    {CardType::type8, atr8, false, 0x03, 0x12, 0x04,           0x00,   true,      false, false, 0x00,  true},
});
constexpr CardProfile anyOther{
    CardType::unknown, {},  false, 0x11, 0x12, 0x95,           0x00,   false,     false, false, 0x00,  false};
// clang-format on

}  // namespace

std::span<const CardProfile> supportedCards() {
    return cards;
}

bool isSupported(CardType type) {
    return std::ranges::find(cards, type, &CardProfile::type) != cards.end();
}

const CardProfile& profileOf(CardType type) {
    const auto row = std::ranges::find(cards, type, &CardProfile::type);
    return row == cards.end() ? anyOther : *row;
}

const CardProfile* findCardByAtr(std::span<const BYTE> atr) {
    const auto find = [](std::span<const BYTE> wanted) {
        return std::find_if(cards.begin(), cards.end(), [wanted](const CardProfile& card) {
            return std::ranges::equal(card.atr, wanted);
        });
    };
    if (atr.empty()) return nullptr;
    auto row = find(atr);
    if (row == cards.end()) row = find(atr.first(atr.size() - 1));
    return row == cards.end() ? nullptr : &*row;
}

}  // namespace KelmoraID
