// The card types that the virtual card knows, for value-parameterised tests.
#pragma once

#include <vector>

#include "virtual_card/generations.h"

/// @param fits  asked of each generation: whether its type is among them
template <typename Fits>
std::vector<int> cardTypes(const Fits& fits) {
    std::vector<int> types;
    for (const virtual_card::Generation& generation : virtual_card::generations()) {
        if (fits(generation)) types.push_back(generation.cardType);
    }
    return types;
}

inline std::vector<int> allCardTypes() {
    return cardTypes([](const auto&) { return true; });
}
