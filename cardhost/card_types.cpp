#include "card_types.h"

#include <string>

namespace cardhost {

namespace {

constexpr CardGeneration generationTable[] = {
    {3, "3bdd96008031fe450031b8640429ecc1739401808248", "one signing key"},
    {4, "3b7f9600008031b865b085050011122460829000", "two signing keys"},
    {5, "3b7f9600008031b865b08504021b1200f6829000", "two signing keys"},
    {6, "3bdf96008031fe450031b8640429ecc173940180829000", "one signing key"},
    {7, "3b7f9600008031b865b0850300ef1200f6829000", "two signing keys"},
    {8, "3bdd96008031fe450031b8640429ecc1739401808349", "one signing key"},
};

}  // namespace

std::span<const CardGeneration> generations() {
    return generationTable;
}

const CardGeneration* generationOf(ByteView atr) {
    const std::string text = hex(atr);
    for (const std::string& key : {text, text.substr(0, text.size() < 2 ? 0 : text.size() - 2)}) {
        for (const CardGeneration& generation : generationTable) {
            if (key == generation.atr) return &generation;
        }
    }
    return nullptr;
}

}  // namespace cardhost
