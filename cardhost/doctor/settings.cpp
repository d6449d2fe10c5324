// The driver's setting: the directory services that are told of each card's certificate.
#include <fmt/format.h>

#include "doctor/checks.h"
#include "doctor/service_address.h"

namespace cardhost::doctor {

namespace {

constexpr const char* key = R"(SOFTWARE\Kelmora\KelmoraID)";
constexpr const char* valueName = "ADRSURL";
constexpr const char* formAdvice =
    "Write it as http://host:port or https://host:port, several with ';' between.";

const char* reasonOf(ServiceAddress::Form form) {
    switch (form) {
        case ServiceAddress::Form::notThreeParts:
            return "is not of the form scheme://host:port (the port has to be given)";
        case ServiceAddress::Form::unknownScheme:
            return "begins neither with http nor with https, in lower case";
        case ServiceAddress::Form::noHost:
            return "has no host";
        case ServiceAddress::Form::portOutOfRange:
            return "has a port that is not from 1 to 65535";
        case ServiceAddress::Form::portIsNoNumber:
            return "has a port that is no number: the first acquisition of each process fails, and "
                   "no card is paired after it";
        case ServiceAddress::Form::usable:
            break;
    }
    return "is usable";
}

void checkAddress(Examination& examination, const std::string& subject,
                  const ServiceAddress& address) {
    Findings& findings = examination.findings;
    if (address.form != ServiceAddress::Form::usable) {
        findings.problem("settings.address", subject,
                         fmt::format("the address '{}' {}", address.text, reasonOf(address.form)),
                         formAdvice);
        return;
    }
    const std::string shown =
        fmt::format("{}://{}:{}", address.isSecure ? "https" : "http", address.host, address.port);
    if (!address.ignored.empty()) {
        findings.note("settings.ignored", subject,
                      fmt::format("of '{}' the driver drops '{}': it sends to {}/registercard",
                                  address.text, address.ignored, shown),
                      formAdvice);
    }
    if (!address.isSecure) {
        findings.note("settings.plain", subject,
                      shown + ": certificates go there unencrypted, and anyone can answer",
                      "Use https where the service offers it.");
    } else {
        findings.well("settings.address", subject, shown);
    }
    if (!examination.usesNetwork) return;
    examination.show();
    const AddressAnswer answer =
        examination.machine.ask(address.isSecure, address.host, address.port);
    const std::string outcome = fmt::format("{} {} ({:.1f} s)", shown, answer.text,
                                            static_cast<double>(answer.time.count()) / 1000.0);
    if (answer.hasAnswered) {
        findings.well("settings.answer", subject, outcome);
    } else {
        findings.problem("settings.answer", subject, outcome,
                         "Each acquisition of a card waits as long. Look at the name, the "
                         "firewall, the proxy and the service's certificate, or take the address "
                         "out.");
    }
}

void checkView(Examination& examination, View view, const std::string& subject) {
    Findings& findings = examination.findings;
    const auto value = examination.machine.value(view, key, valueName);
    if (!value) {
        findings.well("settings.none", subject, "not set: no certificate is sent anywhere");
        return;
    }
    if (value->kind != RegistryValue::Kind::text) {
        findings.problem("settings.type", subject,
                         "is no text value (REG_SZ), so the driver cannot read it",
                         fmt::format("Delete it, and set it as REG_SZ under HKLM\\{}.", key));
        return;
    }
    const auto addresses = parseServiceAddresses(value->text);
    if (addresses.empty()) {
        findings.note("settings.none", subject, "set, but with no address in it: nothing is sent",
                      std::string(formAdvice) + " If no service is wanted, take ADRSURL out.");
    }
    for (const ServiceAddress& address : addresses) checkAddress(examination, subject, address);
}

}  // namespace

void checkServiceAddresses(Examination& examination) {
    const auto views = examination.views();
    if (views.size() == 1) {
        checkView(examination, views.front(), valueName);
        return;
    }
    checkView(examination, View::bits64, valueName);
    // Programs of 32 bits see another part of the registry under the same name.
    const auto wide = examination.machine.value(View::bits64, key, valueName);
    const auto narrow = examination.machine.value(View::bits32, key, valueName);
    if (!wide && !narrow) return;
    const std::string subject = fmt::format("{}, 32-bit programs", valueName);
    if (!narrow) {
        examination.findings.note(
            "settings.view", subject,
            "not set: 32-bit programs read SOFTWARE\\Wow6432Node\\Kelmora\\KelmoraID and pair no "
            "card",
            "Nothing has to be done: logon is a 64-bit program.");
    } else if (!wide || wide->kind != narrow->kind || wide->text != narrow->text) {
        checkView(examination, View::bits32, subject);
    }
}

}  // namespace cardhost::doctor
