// What Windows itself has to do and to allow: its services, protected LSA, Smart App Control.
#include <charconv>

#include <fmt/format.h>

#include "doctor/checks.h"

namespace cardhost::doctor {

namespace {

constexpr const char* lsaKey = R"(SYSTEM\CurrentControlSet\Control\Lsa)";
constexpr const char* lsaPolicyKey = R"(SOFTWARE\Policies\Microsoft\Windows\System)";
constexpr const char* appControlKey = R"(SYSTEM\CurrentControlSet\Control\CI\Policy)";
constexpr const char* versionKey = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
constexpr const char* platformMaker = "Microsoft Corporation";
/// From this build on (Windows 11 22H2) Windows may protect LSA unasked: as documented, on new
/// installations that are joined, and from 24H2 on after a while also on upgraded machines.
constexpr unsigned firstBuildProtectedUnasked = 22621;

struct NeededService {
    const char* name;
    const char* title;
    bool isVital;
    const char* without;  // what does not work without it
};

constexpr NeededService services[] = {
    {"SCardSvr", "Smart Card", true, "no program reaches a card"},
    {"ScDeviceEnum", "Smart Card Device Enumeration Service", false,
     "Windows may not notice readers for logon"},
    {"CertPropSvc", "Certificate Propagation", false,
     "certificates of a card do not appear in the user's store, where browsers look"},
};

void checkService(Examination& examination, const NeededService& needed) {
    Findings& findings = examination.findings;
    const std::string subject = fmt::format("service {}", needed.title);
    const auto complain = [&](const char* id, const std::string& found, const std::string& advice) {
        const std::string text = fmt::format("{}: {}", found, needed.without);
        if (needed.isVital) {
            findings.problem(id, subject, text, advice);
        } else {
            findings.note(id, subject, text, advice);
        }
    };
    const Service service = examination.machine.service(needed.name);
    if (!service.unreadable.empty()) {
        findings.unknown("platform.service", subject, "cannot be asked: " + service.unreadable);
    } else if (!service.exists) {
        complain("platform.service", "is not there",
                 "Repair the installation of Windows: as administrator, sfc /scannow");
    } else if (service.start == Service::Start::disabled) {
        complain("platform.service", "is disabled",
                 fmt::format("As administrator: sc config {} start= demand", needed.name));
    } else {
        findings.well("platform.service", subject,
                      service.isRunning ? "runs" : "stopped; Windows starts it when it is needed");
    }
}

/// The build number; 0 where it is not to be had.
unsigned windowsBuild(const Examination& examination) {
    const std::string text =
        examination.text(examination.views().front(), versionKey, "CurrentBuildNumber");
    unsigned build = 0;
    std::from_chars(text.data(), text.data() + text.size(), build);
    return build;
}

Signature driverSignature(const Examination& examination) {
    const View view = examination.views().front();
    const FileFacts file = examination.machine.file(
        fmt::format("{}\\{}", examination.machine.systemFolder(view), driverLibrary));
    return file.exists ? file.signature : Signature{};
}

void checkProtectedLsa(Examination& examination, const Signature& signature) {
    Findings& findings = examination.findings;
    const std::string subject = "LSA protection";
    const auto own = examination.number(lsaKey, "RunAsPPL");
    const auto policy = examination.number(lsaPolicyKey, "RunAsPPL");
    const bool isMakers =
        signature.state == Signature::State::trusted && signature.organization == platformMaker;
    if (policy.value_or(own.value_or(0)) != 0) {
        if (isMakers) {
            findings.well("platform.lsa", subject, "on; the driver has Microsoft's signature");
        } else {
            findings.problem(
                "platform.lsa", subject,
                "on: the logon process loads only files that Microsoft has signed, and the "
                "driver is none of them. User programs work (and certutil -scinfo passes), logon "
                "with the card fails",
                "Install a driver that Microsoft has signed, or weigh turning the protection "
                "off; README, 'Before you rely on it for logon'. In the event log: CodeIntegrity "
                "3033, 3063.");
        }
    } else if (!policy && !own && !isMakers &&
               windowsBuild(examination) >= firstBuildProtectedUnasked) {
        findings.unknown("platform.lsa", subject,
                         "not configured; Windows 11 may have it on all the same (new "
                         "installations that are joined; from 24H2 on also upgraded ones, after "
                         "a while), and logon with the card then fails",
                         "Look in the event log for WinInit 12, 'LSASS.exe was started as a "
                         "protected process'.");
    } else {
        findings.well("platform.lsa", subject,
                      isMakers ? "any state is fine for this driver" : "off");
    }
}

void checkAppControl(Examination& examination, const Signature& signature) {
    constexpr std::uint32_t enforced = 1;
    constexpr std::uint32_t evaluating = 2;
    Findings& findings = examination.findings;
    const std::string subject = "Smart App Control";
    const bool isTrusted = signature.state == Signature::State::trusted;
    const auto state = examination.number(appControlKey, "VerifiedAndReputablePolicyState");
    if (state.value_or(0) == enforced) {
        if (isTrusted) {
            findings.well("platform.app-control", subject,
                          "on; the driver has a trusted signature");
        } else {
            findings.problem("platform.app-control", subject,
                             "on: it refuses files without a trusted signature, the driver among "
                             "them",
                             "Install a signed driver, or turn it off under Windows Security, App "
                             "and browser control (for good: it cannot be turned on again).");
        }
    } else if (state.value_or(0) == evaluating && !isTrusted) {
        findings.note("platform.app-control", subject,
                      "evaluating: Windows may turn it on, and then refuses the driver, which has "
                      "no trusted signature",
                      "Install a signed driver, or turn it off under Windows Security, App and "
                      "browser control.");
    } else {
        findings.well("platform.app-control", subject,
                      state.value_or(0) == evaluating ? "evaluating" : "off");
    }
}

}  // namespace

void checkPlatform(Examination& examination) {
    for (const NeededService& service : services) checkService(examination, service);
    const Signature signature = driverSignature(examination);
    checkProtectedLsa(examination, signature);
    checkAppControl(examination, signature);
}

}  // namespace cardhost::doctor
