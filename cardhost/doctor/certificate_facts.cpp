#include "doctor/certificate_facts.h"

#include <algorithm>

#include <botan/ber_dec.h>
#include <botan/data_src.h>
#include <botan/pkix_types.h>
#include <botan/x509cert.h>
#include <fmt/format.h>

#include "certificates.h"
#include "exit_codes.h"

namespace cardhost::doctor {

namespace {

constexpr const char* cardLogonUsage = "1.3.6.1.4.1.311.20.2.2";
constexpr const char* clientAuthenticationUsage = "1.3.6.1.5.5.7.3.2";  // RFC 5280, 4.2.1.12
constexpr const char* anyUsage = "2.5.29.37.0";
constexpr const char* userPrincipalName = "1.3.6.1.4.1.311.20.2.3";
constexpr const char* subjectAlternativeName = "2.5.29.17";  // RFC 5280, 4.2.1.6

/// Whether one of the alternative names is that of a user in a domain. The library passes over
/// names of this form (otherName).
bool hasUserPrincipalName(const Botan::Extensions& extensions) {
    const Botan::OID extension(subjectAlternativeName);
    if (!extensions.extension_set(extension)) return false;
    Botan::BER_Decoder decoder(extensions.get_extension_bits(extension));
    Botan::BER_Decoder names = decoder.start_cons(Botan::SEQUENCE);
    while (names.more_items()) {
        const Botan::BER_Object name = names.get_next_object();
        const auto constructed =
            static_cast<Botan::ASN1_Tag>(Botan::CONTEXT_SPECIFIC | Botan::CONSTRUCTED);
        if (!name.is_a(0, constructed)) continue;
        Botan::BER_Decoder other(name);
        Botan::OID kind;
        other.decode(kind);
        if (kind.to_string() == userPrincipalName && other.more_items()) return true;
    }
    return false;
}

}  // namespace

CertificateFacts certificateFacts(const Bytes& der, int container, const std::string& origin) try {
    const PublicKey key = certificateOf(der, origin).key;
    Botan::DataSource_Memory source(der.data(), der.size());
    const Botan::X509_Certificate certificate(source);
    CertificateFacts facts;
    facts.container = container;
    facts.name = certificate.subject_dn().get_first_attribute("X520.CommonName");
    facts.key = key.description;
    facts.isEc = key.isEc;
    facts.notBefore = certificate.not_before().to_std_timepoint();
    facts.notAfter = certificate.not_after().to_std_timepoint();
    facts.allowsSigning = certificate.allowed_usage(Botan::DIGITAL_SIGNATURE);
    const std::vector<Botan::OID>& usages = certificate.extended_key_usage();
    const auto allows = [&](const char* usage) {
        return std::any_of(usages.begin(), usages.end(), [&](const Botan::OID& allowed) {
            return allowed.to_string() == usage || allowed.to_string() == anyUsage;
        });
    };
    facts.hasExtendedUsage = !usages.empty();
    facts.allowsCardLogon = allows(cardLogonUsage);
    facts.allowsClientAuthentication = allows(clientAuthenticationUsage);
    facts.hasUserPrincipalName = hasUserPrincipalName(certificate.v3_extensions());
    return facts;
} catch (const Botan::Exception& exception) {
    throw Failure(ExitCode::refused, fmt::format("{} holds no certificate that can be read: {}",
                                                 origin, exception.what()));
}

}  // namespace cardhost::doctor
