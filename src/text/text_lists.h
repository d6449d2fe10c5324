// Texts cut into lists and joined again.
#pragma once

#include <string>
#include <vector>

#include "platform/wide_text.h"

namespace KelmoraID {

/// The wide strings of a multi-string, up to the empty one that ends it (or the end of the buffer,
/// should that be missing).
std::vector<WideString> multiStringToList(const WideString& multiString);

/// Cuts a text in the manner of lines read with the delimiter as line end: an empty text gives an
/// empty vector, and a delimiter at the very end gives no empty last element.
std::vector<std::string> splitString(const std::string& text, char delimiter);

/// The first element, then for each further element the separator and the element.
/// @param parts  at least one element
std::string joinStrings(const std::vector<std::string>& parts, const std::string& separator);

/// Removes space, tab, line feed, vertical tab, form feed and carriage return from both ends.
void trimBlanks(std::string& text);

}  // namespace KelmoraID
