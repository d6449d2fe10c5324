// The driver's files: the one that programs of each view load, and what it is made for.
#include <fmt/format.h>

#include "doctor/checks.h"

namespace cardhost::doctor {

namespace {

constexpr const char* entryPoint = "CardAcquireContext";
constexpr const char* installPackageAgain = "Install the package for this machine again.";

/// A file that has to be there, and what it has to be.
struct ExpectedFile {
    std::string subject;
    std::string path;
    Architecture architecture;
    bool isArm64X;
};

std::vector<ExpectedFile> expectedFiles(const Examination& examination) {
    const Machine& machine = examination.machine;
    std::vector<ExpectedFile> files;
    for (const View view : examination.views()) {
        const bool isSet = machine.architecture() == Architecture::arm64 && view == View::bits64;
        const std::string folder = machine.systemFolder(view) + "\\";
        files.push_back({programsOf(view), folder + driverLibrary,
                         view == View::bits32 ? Architecture::x86 : machine.architecture(), isSet});
        if (!isSet) continue;
        files.push_back({"ARM64 programs", folder + "kelmora-id-minidriver-arm64.dll",
                         Architecture::arm64, false});
        files.push_back({"emulated x64 programs", folder + "kelmora-id-minidriver-x64.dll",
                         Architecture::x64, false});
    }
    return files;
}

std::string signatureText(const Signature& signature) {
    switch (signature.state) {
        case Signature::State::none:
            return "no signature in the file";
        case Signature::State::trusted:
            return fmt::format("signed by {}", signature.signer);
        case Signature::State::untrusted:
            return fmt::format("signed by {}, whom this machine does not trust ({})",
                               signature.signer, signature.reason);
        case Signature::State::broken:
            return fmt::format("its signature does not hold ({})", signature.reason);
        case Signature::State::unknown:
            break;
    }
    return "signature not looked at";
}

void checkSignature(Findings& findings, const ExpectedFile& expected, const FileFacts& file) {
    const std::string text = signatureText(file.signature);
    switch (file.signature.state) {
        case Signature::State::broken:
            findings.problem("driver.signature", expected.subject,
                             fmt::format("{}: {}", expected.path, text),
                             "The file was changed after it was signed, or is damaged. " +
                                 std::string(installPackageAgain));
            break;
        case Signature::State::untrusted:
            findings.note("driver.signature", expected.subject, text,
                          "Where only trusted files may run, add the signer's authority to the "
                          "trusted ones.");
            break;
        case Signature::State::none:
            findings.note("driver.signature", expected.subject, text,
                          "That is enough for user programs where no policy asks for signatures; "
                          "see Platform below for logon.");
            break;
        default:
            findings.well("driver.signature", expected.subject, text);
    }
}

/// Whether the file can be loaded by the programs that look for it.
bool checkFile(Findings& findings, const ExpectedFile& expected, const FileFacts& file) {
    const auto complain = [&](const char* id, const std::string& found) {
        findings.problem(id, expected.subject, fmt::format("{} {}", expected.path, found),
                         installPackageAgain);
        return false;
    };
    if (!file.exists) return complain("driver.missing", "is missing");
    if (!file.unreadable.empty()) {  // which names the file
        findings.problem("driver.unreadable", expected.subject, file.unreadable,
                         installPackageAgain);
        return false;
    }
    if (!file.pe.isPe || !file.pe.isLibrary) return complain("driver.format", "is no library");
    if (file.pe.architecture != expected.architecture) {
        return complain("driver.architecture",
                        fmt::format("is made for {}; these programs need {}",
                                    architectureName(file.pe.architecture),
                                    architectureName(expected.architecture)));
    }
    if (expected.isArm64X && !file.pe.isArm64X) {
        return complain("driver.set",
                        "serves ARM64 programs only; emulated x64 programs look for it too");
    }
    if (!file.pe.exportsName(entryPoint)) {
        return complain("driver.export", fmt::format("does not export {}", entryPoint));
    }
    findings.well("driver.file", expected.subject,
                  fmt::format("{}, {}{}", expected.path,
                              expected.isArm64X ? "ARM64X" : architectureName(file.pe.architecture),
                              file.version.empty() ? "" : ", version " + file.version));
    return true;
}

}  // namespace

void checkDriverFiles(Examination& examination) {
    Findings& findings = examination.findings;
    std::string version;
    for (const ExpectedFile& expected : expectedFiles(examination)) {
        const FileFacts file = examination.machine.file(expected.path);
        if (!checkFile(findings, expected, file)) continue;
        checkSignature(findings, expected, file);
        if (file.version.empty()) {
            findings.note("driver.version", expected.subject, "the file tells no version",
                          "It is not as the package has it. " + std::string(installPackageAgain));
        } else if (!version.empty() && version != file.version) {
            findings.problem("driver.version", expected.subject,
                             fmt::format("version {} here, {} above", file.version, version),
                             installPackageAgain);
        } else {
            version = file.version;
        }
    }
}

void checkDriverLibrary(Examination& examination) {
    const std::string path = examination.machine.driverFile();
    const FileFacts file = examination.machine.file(path);
    if (!file.exists) {
        examination.findings.problem("driver.missing", "driver", path + " is missing",
                                     "Build or install it, or name one with --driver.");
    } else if (!file.unreadable.empty()) {
        examination.findings.problem("driver.unreadable", "driver",
                                     fmt::format("{} cannot be loaded: {}", path, file.unreadable),
                                     "Build or install it anew, or name one with --driver.");
    } else {
        examination.findings.well("driver.file", "driver", path);
    }
}

}  // namespace cardhost::doctor
