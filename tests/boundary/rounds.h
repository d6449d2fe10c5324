// How often a test repeats itself: a short form by default, and a long one by KELMORA_ROUNDS.
#pragma once

#include <cstdlib>

namespace boundary {

/// @param usual  without the variable  @param most  whatever the variable says
inline int rounds(int usual, int most) {
    const char* text = std::getenv("KELMORA_ROUNDS");
    if (text == nullptr) return usual;
    const int asked = std::atoi(text);
    return asked < 1 ? usual : asked < most ? asked : most;
}

}  // namespace boundary
