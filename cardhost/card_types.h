// The generations of FINEID cards, told apart by their ATR: the rows of the product's one table, as
// the program shows them.
#pragma once

#include <span>

#include "bytes.h"

namespace cardhost {

struct CardGeneration {
    int type;
    ByteView atr;
    const char* description;
};

/// All of them, by type.
std::span<const CardGeneration> generations();

/// The generation of this type; null where there is none.
const CardGeneration* generationOfType(int type);

/// The generation with this ATR, also with one further byte behind it; null for any other card.
const CardGeneration* generationOf(ByteView atr);

}  // namespace cardhost
