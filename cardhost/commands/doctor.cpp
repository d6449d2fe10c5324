// cardhost doctor: why a card does not work on this machine, or what the driver's log says of it.
#include <memory>

#include <fmt/format.h>

#include "commands/commands.h"
#include "doctor/checks.h"
#include "doctor/log_explanation.h"
#include "doctor/printing.h"
#include "doctor/real_machine.h"
#include "exit_codes.h"
#include "options.h"

namespace cardhost {

namespace {

struct DoctorOptions {
    bool asJson = false;
    bool usesNetwork = false;
    std::string log;
};

doctor::Findings examineMachine(const DoctorOptions& options, const CommonOptions& common,
                                doctor::Printer* printer) {
    const auto machine = doctor::realMachine(common);
    if (options.usesNetwork && !machine->isWindows()) {
        throw Failure(ExitCode::usage,
                      "--network asks the directory services that Windows' registry names; this "
                      "system has no such setting");
    }
    doctor::Examination examination(*machine, options.usesNetwork);
    if (printer != nullptr) examination.show = [&] { printer->print(examination.findings); };
    doctor::examine(examination);
    return std::move(examination.findings);
}

void runDoctor(const DoctorOptions& options, const CommonOptions& common, std::FILE* stream) {
    doctor::Printer printer(stream);
    doctor::Findings findings;
    if (options.log.empty()) {
        findings = examineMachine(options, common, options.asJson ? nullptr : &printer);
    } else {
        doctor::explainLogFile(os::pathOf(options.log), findings);
    }
    if (options.asJson) {
        fmt::print(stream, "{}", doctor::asJson(findings));
    } else {
        if (!options.log.empty()) printer.print(findings);
        printer.summarise(findings);
    }
    // The report has said it all.
    if (findings.count(doctor::Verdict::problem) > 0) throw Failure(ExitCode::unwell, "");
}

}  // namespace

void addDoctor(Commands& commands) {
    auto options = std::make_shared<DoctorOptions>();
    Command command = commands.add(
        "doctor", "Why a card does not work on this machine, or what the driver's log says of it");
    command.flag("--json", options->asJson, "The findings as JSON");
    const Option network = command.flag(
        "--network", options->usesNetwork,
        "Also ask each directory service for an answer (Windows); nothing of a card is sent");
    command
        .option("--log", options->log,
                "Explain this log of the driver's instead, also one from another machine")
        .typeName("FILE")
        .excludes(network);
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        CommonOptions chosen = common;
        if (!chosen.card.isChosen && !chosen.card.reader) chosen.card.reader = "";
        runDoctor(*options, chosen, stream);
    });
}

}  // namespace cardhost
