// What the calls and data objects of a logon mean, in words for people who see them for the first
// time.
#pragma once

#include <string>

#include "bytes.h"

namespace cardhost {

/// What a call is for, by the entry point's name at the front of its text; empty for one not known.
std::string meaningOfCall(const std::string& call);

/// Whether what is in an element of that tag is a file's control parameters (ISO/IEC 7816-4, 7.4).
bool holdsFileParameters(std::uint32_t tag);

/// The name of a BER-TLV tag; of one without a name that depends on where it stands its number,
/// such as [1]; empty for one not known.
std::string nameOfTag(std::uint32_t tag, bool isFileParameter = false);

/// A value as text where its tag says that it is one or, of tags that do not tell, all of it can be
/// printed; the dotted form of an object identifier; or nothing.
std::string textOfValue(std::uint32_t tag, ByteView value);

}  // namespace cardhost
