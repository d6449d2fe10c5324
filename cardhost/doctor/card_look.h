// A look at a card through the driver.
#pragma once

#include "doctor/card_facts.h"
#include "session.h"

namespace cardhost::doctor {

/// Has the driver acquire the card that the options choose, and gathers what it shows. Throws
/// nothing for a card or a driver that fails: the facts say so.
CardFacts lookAtCard(const CommonOptions& options);

}  // namespace cardhost::doctor
