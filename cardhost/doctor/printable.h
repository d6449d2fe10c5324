// Text from outside (a log, a registry, a reader's name) made fit for a terminal.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cardhost::doctor {

/// The text with a question mark for each control character, each byte that is no UTF-8, and each
/// character that changes the direction of writing.
std::string printable(std::string_view text);

/// How many characters the UTF-8 text has.
std::size_t widthOf(std::string_view text);

/// The words in lines of at most `room` characters; a word that is longer is cut.
std::vector<std::string> wrapped(std::string_view text, std::size_t room);

}  // namespace cardhost::doctor
