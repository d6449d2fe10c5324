// What commands and replies mean, in words (ISO/IEC 7816-4 and 7816-8).
#pragma once

#include <string>

#include "recording/conversation.h"

namespace recording {

/// "SELECT by path", "READ BINARY at 127"; "command" for one that is not known.
std::string meaningOfCommand(ByteView command);

/// "done", "file not found"; empty for a status word that is not known.
std::string meaningOfStatusWord(std::uint16_t statusWord);

/// "no reply", "79 bytes, done", "file not found".
std::string meaningOfReply(ByteView reply);

}  // namespace recording
