// The openssl command lines that check what a command has written.
#pragma once

#include <string>

#include "key_operations.h"

namespace cardhost {

/// The command that verifies a signature over a file.
std::string verifyCommand(Scheme scheme, const Hash& hash, const std::string& publicKeyFile,
                          const std::string& signatureFile, const std::string& dataFile);

}  // namespace cardhost
