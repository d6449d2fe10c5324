#include "openssl.h"

#include <stdlib.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace virtual_card {

OpenSsl::OpenSsl() {
    std::string pattern = (std::filesystem::temp_directory_path() / "virtual-card-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = pattern;
}

OpenSsl::~OpenSsl() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void OpenSsl::write(const std::string& name, ByteView content) const {
    std::ofstream file(folder_ / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
    if (!file) throw std::runtime_error("cannot write " + name);
}

std::string OpenSsl::readText(const std::string& name) const {
    std::ifstream file(folder_ / name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) throw std::runtime_error("cannot read " + name);
    return text.str();
}

Bytes OpenSsl::read(const std::string& name) const {
    std::string text = readText(name);
    return Bytes(text.begin(), text.end());
}

bool OpenSsl::run(const std::string& arguments) const {
    std::string line =
        "cd '" + folder_.string() + "' && " OPENSSL_PROGRAM " " + arguments + " >output 2>&1";
    return std::system(line.c_str()) == 0;
}

void OpenSsl::takeCertificate(ByteView der) const {
    write("certificate.der", der);
    if (!run("x509 -inform DER -in certificate.der -noout -pubkey")) {
        throw std::runtime_error("not a certificate: " + readText("output"));
    }
    std::filesystem::rename(folder_ / "output", folder_ / "public.pem");
}

}  // namespace virtual_card
