#include "doctor/certificate_facts.h"

#include <algorithm>

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
    for (const auto& [kind, name] : certificate.subject_alt_name().get_othernames()) {
        if (kind.to_string() == userPrincipalName) facts.hasUserPrincipalName = !name.empty();
    }
    return facts;
} catch (const Botan::Exception& exception) {
    throw Failure(ExitCode::refused, fmt::format("{} holds no certificate that can be read: {}",
                                                 origin, exception.what()));
}

}  // namespace cardhost::doctor
