// OpenSSL's command-line program, as the other party that checks what the card computed.
#pragma once

#include <filesystem>
#include <string>

#include "virtual_card/bytes.h"

namespace virtual_card {

/// A folder of its own with files in it, and the program run there.
class OpenSsl {
public:
    OpenSsl();
    ~OpenSsl();
    OpenSsl(const OpenSsl&) = delete;
    OpenSsl& operator=(const OpenSsl&) = delete;

    void write(const std::string& name, ByteView content) const;
    Bytes read(const std::string& name) const;
    std::string readText(const std::string& name) const;

    /// Runs `openssl` with these arguments. @return whether it ended with 0; its output stands in
    /// the file "output"
    bool run(const std::string& arguments) const;

    /// Writes certificate.der and its public key, public.pem.
    void takeCertificate(ByteView der) const;

private:
    std::filesystem::path folder_;
};

}  // namespace virtual_card
