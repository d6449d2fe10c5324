// The query of PIN tries in a conversation: a call of its own, past the driver, which offers no
// such question.
#pragma once

#include "card_source.h"
#include "doctor/card_facts.h"

namespace cardhost {

/// The tries left of each PIN; none for a card that is none of ours.
std::vector<doctor::PinTries> askPinTries(const ConnectedCard& card, const Trace& trace);

/// "3 tries left", "blocked", "not told".
std::string triesText(const doctor::PinTries& tries);

}  // namespace cardhost
