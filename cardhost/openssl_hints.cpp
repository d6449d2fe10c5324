#include "openssl_hints.h"

#include <fmt/format.h>

namespace cardhost {

std::string verifyCommand(Scheme scheme, const Hash& hash, const std::string& publicKeyFile,
                          const std::string& signatureFile, const std::string& dataFile) {
    return fmt::format("openssl dgst -{}{} -verify {} -signature {} {}", hash.name,
                       scheme == Scheme::pss ? " -sigopt rsa_padding_mode:pss" : "", publicKeyFile,
                       signatureFile, dataFile);
}

}  // namespace cardhost
