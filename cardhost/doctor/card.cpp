// The card as the driver shows it: acquisition, files, certificates, PINs; and what the policies of
// a logon make of its authentication certificate.
#include <algorithm>
#include <chrono>

#include <fmt/format.h>

#include "doctor/checks.h"
#include "status_names.h"

namespace cardhost::doctor {

namespace {

constexpr int authenticationContainer = 0;
constexpr const char* cannotLogOn =
    "Logon needs another certificate: ask the card's issuer for a card that has one. Programs may "
    "take this one all the same.";

std::string dateText(std::chrono::system_clock::time_point time) {
    const std::chrono::year_month_day day(std::chrono::floor<std::chrono::days>(time));
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
}

std::string subjectOf(const CertificateFacts& certificate) {
    return fmt::format("certificate {}", certificate.container);
}

void checkValidity(Examination& examination, const CertificateFacts& certificate) {
    const auto now = examination.machine.now();
    const std::string text =
        fmt::format("{}, {}, valid from {} to {}", certificate.name, certificate.key,
                    dateText(certificate.notBefore), dateText(certificate.notAfter));
    if (now > certificate.notAfter) {
        examination.findings.problem("card.expired", subjectOf(certificate),
                                     text + ": it has run out", "The card has to be renewed.");
    } else if (now < certificate.notBefore) {
        examination.findings.problem("card.not-yet-valid", subjectOf(certificate),
                                     text + ": it is not valid yet",
                                     "Look at the clock of this machine, or wait.");
    } else {
        examination.findings.well("card.certificate", subjectOf(certificate), text);
    }
}

void checkPins(Findings& findings, const CardFacts& card) {
    constexpr int few = 1;
    for (const PinTries& pin : card.pins) {
        const std::string subject = fmt::format("PIN {}", pin.pin);
        switch (pin.state) {
            case PinTries::State::blocked:
                findings.problem("card.blocked", subject, "is blocked",
                                 "Unblock it with the PUK, by the card issuer's own program.");
                break;
            case PinTries::State::open:
                if (pin.left <= few) {
                    findings.note(
                        "card.last-try", subject,
                        fmt::format("{} {} left", pin.left, pin.left == 1 ? "try" : "tries"),
                        "One wrong PIN more blocks it.");
                } else {
                    findings.well("card.tries", subject, fmt::format("{} tries left", pin.left));
                }
                break;
            case PinTries::State::verified:
                findings.well("card.tries", subject, "verified just now by another program");
                break;
            case PinTries::State::unknown:
                findings.unknown("card.tries", subject,
                                 "the card does not tell how many tries are left: " + pin.answer);
                break;
        }
    }
}

std::string adviceOnRefusal(Examination& examination) {
    const auto& all = examination.findings.all();
    if (std::any_of(all.begin(), all.end(), [](const Finding& finding) {
            return finding.id == "settings.address" && finding.verdict == Verdict::problem;
        })) {
        return "Put the address under Settings right, and run this again.";
    }
    const LogPlace log = examination.machine.log();
    const std::string first =
        log.folderExists
            ? ""
            : fmt::format("Switch the log on by making the folder {}, and try again. ", log.folder);
    return fmt::format(
        "{}Have the log explained: cardhost doctor --log \"{}\". A recording of the card tells "
        "more: cardhost --reader record --out card.txt",
        first, log.file);
}

const CertificateFacts* authenticationCertificate(const CardFacts& card) {
    for (const CertificateFacts& certificate : card.certificates) {
        if (certificate.container == authenticationContainer) return &certificate;
    }
    return nullptr;
}

}  // namespace

void checkCard(Examination& examination) {
    constexpr std::chrono::seconds patience{5};
    Findings& findings = examination.findings;
    const CardFacts* card = examination.card();
    if (card == nullptr) {
        findings.note("card.none", "card", "no FINEID card in any reader",
                      "Put one in and run this again to have it looked at.");
        return;
    }
    if (card->refusal) {
        findings.problem("card.refused", "acquisition",
                         "the driver refused the card: " + statusText(*card->refusal),
                         adviceOnRefusal(examination));
        return;
    }
    if (!card->failure.empty()) {
        findings.problem("card.failure", "acquisition", card->failure,
                         "Take the card out and put it in again; try another reader.");
        return;
    }
    const std::string time = fmt::format("{} ms", card->acquisitionTime.count());
    if (card->acquisitionTime > patience) {
        findings.note("card.slow", "acquisition",
                      time + ": Windows resets a card that is held idle for 5 seconds",
                      "A directory service that does not answer is the usual reason: see Settings, "
                      "and run with --network.");
    } else {
        findings.well("card.acquired", "acquisition", time);
    }
    std::string files;
    for (const auto& [path, size] : card->files) {
        files += fmt::format("{}{} ({})", files.empty() ? "" : ", ", path, size);
    }
    findings.well("card.files", "files", files);
    for (const CertificateFacts& certificate : card->certificates) {
        checkValidity(examination, certificate);
    }
    const CertificateFacts* authentication = authenticationCertificate(*card);
    if (authentication != nullptr && !authentication->allowsSigning) {
        findings.problem("card.usage", subjectOf(*authentication),
                         "its key usage does not allow digital signatures, which a logon needs",
                         cannotLogOn);
    }
    checkPins(findings, *card);
}

void checkLogonPolicies(Examination& examination) {
    constexpr const char* providerKey =
        R"(SOFTWARE\Policies\Microsoft\Windows\SmartCardCredentialProvider)";
    constexpr const char* propagationKey = R"(SOFTWARE\Policies\Microsoft\Windows\CertProp)";
    constexpr const char* plugAndPlayKey = R"(SOFTWARE\Policies\Microsoft\Windows\ScPnP)";
    constexpr const char* remoteKey = R"(SOFTWARE\Policies\Microsoft\Windows NT\Terminal Services)";
    Findings& findings = examination.findings;
    const auto isOn = [&](const char* key, const char* name, bool unset) {
        return examination.number(key, name).value_or(unset ? 1 : 0) != 0;
    };
    const CardFacts* card = examination.card();
    const CertificateFacts* certificate =
        card == nullptr ? nullptr : authenticationCertificate(*card);

    // A policy that is off, and whether the card in the reader needs it; without a card all that
    // can be said is what it would mean.
    const auto check = [&](const char* id, const char* name, bool isNeeded, const char* without,
                           const char* title) {
        const std::string subject = fmt::format("policy {}", name);
        if (isOn(providerKey, name, false)) {
            findings.well(id, subject, "on");
        } else if (certificate == nullptr) {
            findings.note(id, subject, fmt::format("off: {}", without),
                          fmt::format("For logon with such cards, enable the {}", title));
        } else if (isNeeded) {
            findings.problem(id, subject, fmt::format("off, and this card needs it: {}", without),
                             fmt::format("For logon, enable the {}", title));
        } else {
            findings.well(id, subject, "off; this card does not need it");
        }
    };
    check("policy.ecc", "EnumerateECCCerts", certificate != nullptr && certificate->isEc,
          "certificates with EC keys are not offered for logon",
          "group policy 'Allow ECC certificates to be used for logon and authentication'.");
    check("policy.no-eku", "AllowCertificatesWithNoEKU",
          certificate != nullptr && !certificate->allowsCardLogon,
          "certificates without the usage 'smart card logon' are not offered for logon",
          "group policy 'Allow certificates with no extended key usage certificate attribute'.");
    check("policy.hints", "X509HintsNeeded",
          certificate != nullptr && !certificate->hasUserPrincipalName,
          "certificates without a user principal name need a user name typed beside the PIN",
          "group policy 'Allow user name hint', and map the certificate to its user in the "
          "directory (altSecurityIdentities).");
    if (certificate != nullptr && certificate->hasExtendedUsage && !certificate->allowsCardLogon &&
        !certificate->allowsClientAuthentication) {
        findings.problem("card.extended-usage", subjectOf(*certificate),
                         "its extended key usage allows neither smart card logon nor client "
                         "authentication",
                         cannotLogOn);
    }
    if (isOn(propagationKey, "CertPropEnabled", true)) {
        findings.well("policy.propagation", "policy CertPropEnabled", "on");
    } else {
        findings.note(
            "policy.propagation", "policy CertPropEnabled",
            "off: certificates of a card do not appear in the user's store, where "
            "browsers look",
            "If browsers are to use the card, enable the group policy 'Turn on certificate "
            "propagation from smart card'.");
    }
    if (!isOn(remoteKey, "fEnableSmartCard", true)) {
        findings.note(
            "policy.redirection", "policy fEnableSmartCard",
            "off: remote sessions on this machine see no reader of the near machine",
            "If they are to use the card, disable the group policy 'Do not allow smart card "
            "device redirection'.");
    }
    if (isOn(plugAndPlayKey, "EnableScPnP", true)) {
        findings.note("policy.plug-and-play", "policy EnableScPnP",
                      "on: Windows may bring another driver for the card from Windows Update",
                      "To keep to this one, disable the group policy 'Turn on Smart Card Plug and "
                      "Play service'.");
    } else {
        findings.well("policy.plug-and-play", "policy EnableScPnP",
                      "off: Windows looks for no other driver");
    }
}

}  // namespace cardhost::doctor
