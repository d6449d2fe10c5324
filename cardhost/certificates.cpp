#include "certificates.h"

#include <memory>
#include <string_view>

#include <botan/data_src.h>
#include <botan/ecc_key.h>
#include <botan/pem.h>
#include <botan/pk_keys.h>
#include <botan/x509_dn.h>
#include <botan/x509_key.h>
#include <botan/x509cert.h>
#include <fmt/format.h>

#include "exit_codes.h"

namespace cardhost {

namespace {

Botan::X509_Certificate parsed(const Bytes& der) {
    Botan::DataSource_Memory source(der.data(), der.size());
    return Botan::X509_Certificate(source);
}

std::string curveName(const Botan::EC_PublicKey& key) {
    const std::string name = key.domain().get_curve_oid().to_formatted_string();
    return name.empty() ? "unnamed curve" : name;
}

/// "C="FI", CN="..."": the library puts the name of the standard before some attributes, and no
/// blank between them.
std::string nameText(const Botan::X509_DN& name) {
    constexpr std::string_view standard = "X520.";
    std::string text = name.to_string();
    for (auto at = text.find(standard); at != std::string::npos; at = text.find(standard, at)) {
        text.erase(at, standard.size());
    }
    constexpr std::string_view end = "\",";
    for (auto at = text.find(end); at != std::string::npos; at = text.find(end, at + 1)) {
        text.insert(at + end.size(), " ");
    }
    return text;
}

PublicKey publicKeyOf(const Botan::X509_Certificate& certificate) {
    const std::unique_ptr<Botan::Public_Key> key(certificate.load_subject_public_key());
    const auto* ec = dynamic_cast<const Botan::EC_PublicKey*>(key.get());
    PublicKey result;
    result.isEc = ec != nullptr;
    result.bits = key->key_length();
    result.description = fmt::format("{}, {} bits", ec ? "EC" : key->algo_name(), result.bits);
    if (ec != nullptr) result.description += ", " + curveName(*ec);
    result.bitString = certificate.subject_public_key_bitstring();
    return result;
}

}  // namespace

Certificate certificateOf(const Bytes& der, const std::string& origin) try {
    const Botan::X509_Certificate certificate = parsed(der);
    Certificate result;
    result.der = der;
    result.subject = nameText(certificate.subject_dn());
    result.issuer = nameText(certificate.issuer_dn());
    result.serialNumber = hexSpaced(certificate.serial_number());
    result.notBefore = certificate.not_before().readable_string();
    result.notAfter = certificate.not_after().readable_string();
    result.key = publicKeyOf(certificate);
    return result;
} catch (const Botan::Exception& exception) {
    throw Failure(ExitCode::refused, fmt::format("{} holds no certificate that can be read: {}",
                                                 origin, exception.what()));
}

std::string certificatePem(const Certificate& certificate) {
    return Botan::PEM_Code::encode(certificate.der.data(), certificate.der.size(), "CERTIFICATE");
}

std::string publicKeyPem(const Certificate& certificate) {
    const Bytes key = parsed(certificate.der).subject_public_key_info();
    return Botan::PEM_Code::encode(key.data(), key.size(), "PUBLIC KEY");
}

CurvePoint pointOfPublicKey(const Bytes& encoded, const std::string& origin) try {
    const std::unique_ptr<Botan::Public_Key> key(Botan::X509::load_key(encoded));
    const auto* ec = dynamic_cast<const Botan::EC_PublicKey*>(key.get());
    if (ec == nullptr) {
        throw Failure(ExitCode::file, fmt::format("{} holds no EC public key", origin));
    }
    const std::size_t length = ec->domain().get_p_bytes();
    const auto coordinate = [length](const Botan::BigInt& value) {
        const auto bytes = Botan::BigInt::encode_1363(value, length);
        return Bytes(bytes.begin(), bytes.end());
    };
    return {curveName(*ec), coordinate(ec->public_point().get_affine_x()),
            coordinate(ec->public_point().get_affine_y())};
} catch (const Botan::Exception& exception) {
    throw Failure(ExitCode::file, fmt::format("{} holds no public key that can be read: {}", origin,
                                              exception.what()));
}

std::string curveOf(const Certificate& certificate) {
    const Bytes key = parsed(certificate.der).subject_public_key_info();
    return pointOfPublicKey(key, "the certificate").curve;
}

}  // namespace cardhost
