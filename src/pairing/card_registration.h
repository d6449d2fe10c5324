// Tells the configured directory services about a card's authentication certificate, so that they
// can pair the card with its user. Its outcome never influences an acquisition.
#pragma once

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// Sends the certificate to the configured addresses, one after the other, until one accepts.
/// @param certificate  the encoded certificate
/// @param debug        whether the client's gated lines are written
/// @throws std::invalid_argument, std::out_of_range when an address has a port that is no number
void RegisterCard(const ByteVector& certificate, bool debug);

/// The acquisition's step: RegisterCard, unless it is switched off or running already. An exception
/// passes, and leaves the mark of a running registration set: from then on this process registers
/// no card.
void registerAcquiredCard(const ByteVector& certificate);

/// Switches the registration off or on for this process. Held ready: nothing calls it.
void setSkipRegisterCard(bool skip);

}  // namespace KelmoraID
