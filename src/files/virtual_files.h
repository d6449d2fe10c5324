// The files of the minidriver file system that a FINEID card does not hold: made up from the
// CardContext, read-only, and served from memory.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "bytes/byte_vector.h"
#include "session/card_context.h"

namespace KelmoraID {

/// Compares names of directories and files: without regard to case, for ASCII letters.
bool sameName(std::string_view left, std::string_view right);

/// The directory that holds the containers' map and the certificates.
inline constexpr std::string_view minidriverDirectory = "mscp";

/// A file: what CardGetFileInfo tells of it, where a certificate has a fixed size, and its content.
struct VirtualFile {
    std::string_view name;
    CARD_FILE_ACCESS_CONDITION accessCondition;
    DWORD (*statedSize)(const CardContext& context);
    std::span<const BYTE> (*content)(const CardContext& context);
    bool onlyWithSecondSignCert;
};

/// Finds a file of the root or of "mscp" on this card; NULL if there is no such file.
const VirtualFile* findRootFile(std::string_view name);
const VirtualFile* findMinidriverFile(std::string_view name, const CardContext& context);

/// The directory listings: multi-strings of 8-bit text, each name with its NUL, and a final NUL.
ByteVector rootListing();
ByteVector minidriverListing(const CardContext& context);

}  // namespace KelmoraID
