// The journeys of a logon as they have to be, command by command.
#pragma once

#include <string>

namespace boundary {

/// What a card of that type sees. READ BINARY runs are folded to "read N bytes".
std::string expectedJourney(int cardType);

}  // namespace boundary
