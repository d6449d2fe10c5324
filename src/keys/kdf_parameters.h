// The parameter list of a key derivation: the hash, and what goes before and behind the secret.
#pragma once

#include "bytes/byte_vector.h"
#include "platform/wide_text.h"

namespace KelmoraID {

struct KdfParameters {
    WideString hashName = WIDE_TEXT("SHA1");
    ByteVector prepend;
    ByteVector append;
};

/// Reads the buffers of a list in order, with a line in the log file for each of a known type. A
/// later hash replaces an earlier one; prepends and appends add up. Nothing is read beyond the
/// length that a buffer tells: a name without terminator ends there.
/// @param scope       for the lines
/// @param parameters  the defaults in, what the list says out
/// @return NULL, or the suffix of the exit line of a refusal
const char* readKdfParameters(const char* scope, const BCryptBufferDesc& list,
                              KdfParameters& parameters);

}  // namespace KelmoraID
