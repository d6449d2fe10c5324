// The list of key containers: one record for each key of the card, with a name that is derived from
// the card and not stored on it, so that the same card has the same containers on every machine.
#pragma once

#include "session/card_context.h"

namespace KelmoraID {

/// Fills the context's containers from its identifier and its certificates.
void listContainers(const CARD_DATA& card, CardContext& context);

}  // namespace KelmoraID
