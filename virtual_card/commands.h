// The commands that the card knows. Each has a file of its own and answers with data and a status
// word; how the data reaches the reader (at once, or by GET RESPONSE) is settled in virtual_card.
#pragma once

#include "virtual_card/card_state.h"

namespace virtual_card {

/// SELECT (ISO/IEC 7816-4, 11.1.1), in the forms that the generation answers.
Reply select(CardState& card, const Command& command);
/// READ BINARY of the current file (11.2.3).
Reply readBinary(CardState& card, const Command& command);
/// VERIFY (11.5.6): a PIN, or without data the question about its state.
Reply verify(CardState& card, const Command& command);
/// GET DATA (11.4.2) with an extended header list for a PIN's properties.
Reply getData(CardState& card, const Command& command);
/// GET RESPONSE (11.7.1).
Reply getResponse(CardState& card, const Command& command);
/// MANAGE SECURITY ENVIRONMENT, SET (11.5.11), templates for signature and for decipher.
Reply manageSecurityEnvironment(CardState& card, const Command& command);
/// PERFORM SECURITY OPERATION (ISO/IEC 7816-8, 5): HASH, COMPUTE DIGITAL SIGNATURE, DECIPHER.
Reply performSecurityOperation(CardState& card, const Command& command);

}  // namespace virtual_card
