#include "virtual_card/card_state.h"

#include <botan/auto_rng.h>

#include "virtual_card/pkcs15_files.h"

namespace virtual_card {

CardState::CardState(const Generation& row)
    : generation(row), security(row), random_(std::make_unique<Botan::AutoSeeded_RNG>()) {
    makeFiles(row, files);
}

PrivateKey& CardState::key(const KeyRow& row) {
    return keys_.try_emplace(&row, row, *random_).first->second;
}

void CardState::reset() {
    files.reset();
    security.reset();
    waiting = {};
    chain.reset();
}

}  // namespace virtual_card
