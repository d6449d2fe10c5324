#include "card_types.h"

#include <algorithm>
#include <vector>

#include "profiles/card_profiles.h"

namespace cardhost {

namespace {

std::vector<CardGeneration> madeOfProfiles() {
    std::vector<CardGeneration> list;
    for (const KelmoraID::CardProfile& profile : KelmoraID::supportedCards()) {
        list.push_back({static_cast<int>(profile.type), profile.atr,
                        profile.hasSecondSigningKey ? "two signing keys" : "one signing key"});
    }
    return list;
}

}  // namespace

std::span<const CardGeneration> generations() {
    static const std::vector<CardGeneration> list = madeOfProfiles();
    return list;
}

const CardGeneration* generationOfType(int type) {
    const auto list = generations();
    const auto row = std::find_if(list.begin(), list.end(), [&](const CardGeneration& generation) {
        return generation.type == type;
    });
    return row == list.end() ? nullptr : &*row;
}

const CardGeneration* generationOf(ByteView atr) {
    const KelmoraID::CardProfile* profile = KelmoraID::findCardByAtr(atr);
    return profile == nullptr ? nullptr : generationOfType(static_cast<int>(profile->type));
}

}  // namespace cardhost
