// The companion application's PIN dialog, found as the driver finds it: by the application's
// start-up command.
#include <fmt/format.h>

#include "doctor/checks.h"

namespace cardhost::doctor {

namespace {

// The driver names the narrow view outright, so that programs of both widths find one value.
constexpr const char* runKey = R"(SOFTWARE\Microsoft\Windows\CurrentVersion\Run)";
constexpr const char* runValue = "Kelmora ID";
constexpr const char* libraryName = "CodeEntryLibrary.dll";
constexpr const char* dialogFunction = "promptCodeEntryDefault";
constexpr const char* subject = "companion's PIN dialog";

/// The command less what stands behind its last backslash, and the library there. The driver knows
/// neither quotation marks nor arguments.
std::string libraryOf(const std::string& command) {
    const std::size_t end = command.rfind('\\');
    return (end == std::string::npos ? std::string() : command.substr(0, end)) + "\\" + libraryName;
}

}  // namespace

void checkPinDialog(Examination& examination) {
    Findings& findings = examination.findings;
    const auto value = examination.machine.value(View::bits32, runKey, runValue);
    const std::string noDialog = "; Windows asks for PINs itself";
    if (!value || (value->kind == RegistryValue::Kind::text && value->text.empty())) {
        findings.well("dialog.none", subject, "not installed" + noDialog);
        return;
    }
    if (value->kind != RegistryValue::Kind::text) {
        findings.note("dialog.type", subject,
                      fmt::format("the Run value '{}' is no text value{}", runValue, noDialog),
                      "Install the companion application again.");
        return;
    }
    const std::string path = libraryOf(value->text);
    if (value->text.find('"') != std::string::npos) {
        findings.note("dialog.command", subject,
                      fmt::format("the Run value '{}' has quotation marks, which the driver takes "
                                  "for part of the folder's name{}",
                                  runValue, noDialog),
                      "Let the value be the program's path alone, without quotation marks.");
        return;
    }
    const FileFacts file = examination.machine.file(path);
    if (!file.exists) {
        findings.note("dialog.missing", subject, fmt::format("{} is missing{}", path, noDialog),
                      "Install the companion application again, or remove its Run value. The "
                      "value must be the program's path alone, without arguments.");
        return;
    }
    if (!file.unreadable.empty() || !file.pe.isPe || !file.pe.isLibrary) {
        findings.note(
            "dialog.format", subject,
            (file.unreadable.empty() ? path + " is no library" : file.unreadable) + noDialog,
            "Install the companion application again.");
        return;
    }
    const Architecture architecture = file.pe.architecture;
    if (!file.pe.exportsName(dialogFunction)) {
        findings.problem("dialog.function", subject,
                         fmt::format("{} does not export {}: a PIN can neither be entered there "
                                     "nor elsewhere",
                                     path, dialogFunction),
                         "Install the companion application again, or remove its Run value.");
    } else if (architecture == examination.machine.architecture()) {
        findings.well("dialog.library", subject,
                      fmt::format("{}, {}", path, architectureName(architecture)));
    } else {
        findings.note("dialog.architecture", subject,
                      fmt::format("{} is made for {}, so only such programs show the dialog; in "
                                  "others Windows asks",
                                  path, architectureName(architecture)),
                      fmt::format("Install the companion application for {}.",
                                  architectureName(examination.machine.architecture())));
    }
}

}  // namespace cardhost::doctor
