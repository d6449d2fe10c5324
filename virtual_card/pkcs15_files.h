// The card's files as PKCS#15 (ISO/IEC 7816-15) lays them down: EF.CIAInfo, the object directory
// and the directories of certificates, PINs and private keys, made from a generation's row.
#pragma once

#include "virtual_card/file_system.h"
#include "virtual_card/generations.h"

namespace virtual_card {

/// Fills an empty file system with all files of a generation, its certificates included.
void makeFiles(const Generation& generation, FileSystem& files);

/// The DER bytes of a PEM text.
Bytes derOfPem(std::string_view pem);

}  // namespace virtual_card
