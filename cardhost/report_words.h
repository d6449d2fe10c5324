// What the calls and data objects of a logon mean, in words for people who see them for the first
// time.
#pragma once

#include <string>

#include "bytes.h"

namespace cardhost {

/// What a call is for, by the entry point's name at the front of its text; empty for one not known.
std::string meaningOfCall(const std::string& call);

/// The name of a BER-TLV tag; empty for one not known.
std::string nameOfTag(std::uint32_t tag);

/// A value as text where its tag says that it is one, the dotted form of an object identifier, or
/// nothing.
std::string textOfValue(std::uint32_t tag, ByteView value);

}  // namespace cardhost
