#include "doctor/log_explanation.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "files.h"
#include "status_names.h"

namespace cardhost::doctor {

namespace {

constexpr LogExplanation messages[] = {
    {"Unable to load DLL: CodeEntryLibrary", Verdict::note,
     "the companion application's PIN dialog could not be loaded; Windows asked for the PIN",
     "The line 'Error code' below it tells why: 126 the file or one that it needs is missing, 193 "
     "it is made for other programs (32 or 64 bits), 5 it may not be read."},
    {"Unable to find the function in the DLL!", Verdict::problem,
     "the companion application's library has no PIN dialog in it, so no PIN could be entered",
     "Install the companion application again, or remove its Run value."},
    {"Error: The codeEntryLibPath was not set.", Verdict::problem,
     "the PIN dialog was wanted and its place not known",
     "Install the companion application again."},
    {"Error: Changing directory failed.", Verdict::note,
     "the companion application's folder could not be entered; Windows asked for the PIN",
     "Look at the rights of that folder."},
    {"Class name conversion failed.", Verdict::note,
     "the window in front has no name, so the driver took it for the logon screen", ""},
    {"Failed to verify PIN. Aborting...", Verdict::problem,
     "the card or the reader failed while the PIN was verified",
     "Was the card pulled out? If not, try another reader."},
    {"Pin length validation failed with an unknown exception.", Verdict::problem,
     "the card did not tell how long its PIN may be",
     "Was the card pulled out? If not, try another reader."},
    {"ERROR: Could not reconnect to card.", Verdict::problem,
     "the card was reset by another program and could not be connected again",
     "Was the card pulled out? Close other programs that use it."},
    {"ERROR: Failed to transmit an apdu.", Verdict::problem,
     "a command did not get through to the card",
     "Was the card pulled out? If not, try another reader."},
    {"Transmit error. Exception:", Verdict::problem, "a command did not get through to the card",
     "Was the card pulled out? If not, try another reader."},
    {"Could not parse URL.", Verdict::problem,
     "an address in ADRSURL is malformed, so it was passed over",
     "Write it as http://host:port or https://host:port; cardhost doctor names the wrong one."},
    {"Receiving anomalous data. Abort.", Verdict::problem,
     "the directory service answered with more than a pairing has to say",
     "Is the address that of the pairing service? A proxy's page looks like this."},
    {"Could not read data from the server's response. Abort.", Verdict::problem,
     "the answer of the directory service broke off", "Look at the service and the network."},
    {"Unexpected error. No data was read? Abort.", Verdict::problem,
     "the answer of the directory service was empty where it should not be",
     "Look at the service and the network."},
    {"Certificate handling failure.", Verdict::problem,
     "the certificate could not be made ready for the directory service",
     "Look at the card's certificates: cardhost --reader export --out FOLDER."},
    {"Another registercard action is already running.", Verdict::note,
     "an earlier pairing of this process had not ended, so this card was not paired",
     "If it stands at every acquisition: an address in ADRSURL has a port that is no number; put "
     "it right and restart the process."},
    {"Could not read registry.", Verdict::problem,
     "a setting in the registry cannot be read: it is no text value, or access is denied",
     "Set ADRSURL and the Run value 'Kelmora ID' as REG_SZ."},
};

struct StatusExplanation {
    std::string_view scope;  // empty for any
    std::uint32_t status;
    Verdict verdict;
    const char* meaning;
    const char* advice;
};

/// The first row that fits counts.
constexpr StatusExplanation statuses[] = {
    {"CardAuthenticateEx", 0x8010001F, Verdict::problem,
     "the card or the reader failed while the PIN was verified, or the PIN dialog could not be "
     "shown",
     "Was the card pulled out? Lines about CodeEntryLibrary around it tell of the dialog."},
    {"CardAuthenticateEx", 0x8010006B, Verdict::note,
     "the PIN was wrong, or the user closed the PIN dialog",
     "cardhost doctor tells how many tries are left."},
    {"CardAuthenticateEx", 0x80100004, Verdict::problem,
     "the program asked for a PIN in a way that does not fit, such as a silent one where a dialog "
     "is needed",
     "Look at the program that calls."},
    {"CardReadFile", 0x80100022, Verdict::problem,
     "this is a signature in truth (CardSignData logs so): the hash algorithm that the program "
     "chose is not offered",
     "Have the program sign with SHA-256 or stronger."},
    {"CardReadFile", 0x80100024, Verdict::note,
     "the card has no such file; Windows asks for some that are optional", ""},
    {"CardReadFile", 0x80100023, Verdict::note,
     "the card has no such directory; Windows asks for some that are optional", ""},
    {"CardGetProperty", 0x80100022, Verdict::note, "the driver does not offer this property", ""},
    {"CardGetProperty", 0x80100004, Verdict::note,
     "the driver does not know this property; newer versions of Windows ask for some", ""},
    {"CardGetContainerProperty", 0x80100004, Verdict::note,
     "the driver does not know this property; newer versions of Windows ask for some", ""},
    {"CardGetContainerProperty", 0x80100030, Verdict::note,
     "the card has no such key; Windows asks for all that there could be", ""},
    {"CardGetContainerInfo", 0x80100030, Verdict::note,
     "the card has no such key; Windows asks for all that there could be", ""},
    {"CardSignData", 0x8010001F, Verdict::problem,
     "the card did not sign: pulled out, reset by another program (Windows does so after 5 idle "
     "seconds), or the reader failed",
     "Try again with the card left in; close other programs that use it; try another reader."},
    {"", 0x8010006A, Verdict::note, "the key wants its PIN first; Windows then asks for it",
     "If it comes right after a PIN was accepted: another program resets the card meanwhile."},
    {"", 0x8010006C, Verdict::problem, "the PIN is blocked",
     "Unblock it with the PUK, by the card issuer's own program."},
    {"", 0x80100022, Verdict::note, "the driver does not offer this for this card", ""},
    {"", 0x80100024, Verdict::problem,
     "a certificate or file that has to be on the card is not there, or could not be read",
     "Try the card in another reader; a recording of it tells more."},
    {"", 0x8010001F, Verdict::problem, "the card or the platform answered something unexpected",
     "Try again with the card left in; close other programs that use it; try another reader."},
    {"", 0x8010000D, Verdict::problem, "the driver does not know this card",
     "cardhost doctor shows the card's ATR and the nearest known one."},
    {"", 0x80100004, Verdict::problem, "the program gave an argument that is not valid",
     "Look at the program that calls."},
    {"", 0x00000057, Verdict::problem, "the program asked for a padding that is not offered",
     "Look at the program that calls."},
    {"", 0x0000051A, Verdict::problem, "the program speaks another version of the interface",
     "Look at the program that calls."},
    {"", 0x00000008, Verdict::problem, "the process has no memory left",
     "Start the program anew, and look at what uses the memory of this machine."},
    {"", 0x80100068, Verdict::problem, "another program reset the card in between",
     "Close other programs that use the card, and try again."},
    {"", 0x80100069, Verdict::problem, "the card was pulled out", "Put it in and try again."},
};

constexpr StatusExplanation unknownStatus = {
    "", 0, Verdict::problem, "no usual answer of this driver: the reader's or the platform's own",
    "Look the status up; it comes from below the driver."};

const StatusExplanation& explanationOf(const LogIncident& incident) {
    const auto* row =
        std::find_if(std::begin(statuses), std::end(statuses), [&](const StatusExplanation& known) {
            return known.status == incident.status &&
                   (known.scope.empty() || known.scope == incident.scope);
        });
    return row == std::end(statuses) ? unknownStatus : *row;
}

std::string timesText(const LogIncident& incident) {
    if (incident.times == 1) return incident.lastTime;
    return fmt::format("{} times, last {}", incident.times, incident.lastTime);
}

void explainIncident(const LogAcquisition& acquisition, const LogIncident& incident,
                     Findings& findings) {
    const std::string& subject = incident.scope;
    const std::string when = timesText(incident);
    switch (incident.kind) {
        case LogIncident::Kind::refusedCall: {
            const StatusExplanation& known = explanationOf(incident);
            findings.add(known.verdict, "log.refused", subject,
                         fmt::format("{}: {}{}: {}", when, statusText(incident.status),
                                     incident.message, known.meaning),
                         known.advice);
            break;
        }
        case LogIncident::Kind::wrongPin:
            findings.note(
                "log.wrong-pin", subject,
                fmt::format("{}: {}, or blocked by now", when, statusText(incident.status)),
                "cardhost doctor tells how many tries are left.");
            break;
        case LogIncident::Kind::message: {
            const LogExplanation& known = *explanationOfMessage(incident.message);
            findings.add(known.verdict, "log.message", subject,
                         fmt::format("{}: '{}': {}", when, incident.message, known.meaning),
                         known.advice);
            break;
        }
        case LogIncident::Kind::unfinishedCall:
            findings.note("log.unfinished", subject,
                          fmt::format("{}: has no end in the log: the process ended in it, was "
                                      "still at it, or could not write its line",
                                      when));
            break;
        case LogIncident::Kind::failedAcquisition:
            if (acquisition.isMixed || acquisition.isCut) {
                findings.note("log.not-acquired", subject,
                              fmt::format("{}: the log does not show that the card was read; the "
                                          "lines of several acquisitions, or the end of the log, "
                                          "may hide it",
                                          when));
                break;
            }
            findings.problem("log.not-acquired", subject,
                             fmt::format("{}: the card was not acquired: it is of no known kind, "
                                         "or its files could not be read",
                                         when),
                             "Put the card in and run cardhost doctor.");
            break;
    }
}

/// Whether one more refusal of a question that may be asked in vain.
bool isUsual(const LogIncident& incident) {
    return incident.kind == LogIncident::Kind::refusedCall && !hasExitLine(incident.scope) &&
           explanationOf(incident).verdict == Verdict::note;
}

/// What an incident says of the whole acquisition.
LogOutcome outcomeOf(const LogAcquisition& acquisition, const LogIncident& incident) {
    // In a mixed log the later call may be another process's.
    const bool isMadeGood = incident.isMadeGood && !acquisition.isMixed;
    const Verdict worst = isMadeGood ? Verdict::note : Verdict::problem;
    const std::string ending =
        fmt::format("{} ended with {}", incident.scope, statusText(incident.status));
    const char* const later = isMadeGood ? "; a later call of it came back well" : "";
    switch (incident.kind) {
        case LogIncident::Kind::refusedCall: {
            const StatusExplanation& known = explanationOf(incident);
            // The last word on a PIN or a key decides, usual or not.
            return {hasExitLine(incident.scope) ? worst : std::min(worst, known.verdict),
                    fmt::format("{}: {}{}", ending, known.meaning, later)};
        }
        case LogIncident::Kind::wrongPin:
            return {worst, fmt::format("{}, or blocked by now{}", ending, later)};
        case LogIncident::Kind::message: {
            const LogExplanation& known = *explanationOfMessage(incident.message);
            return {std::min(worst, known.verdict),
                    fmt::format("{}: {}{}", incident.scope, known.meaning, later)};
        }
        case LogIncident::Kind::unfinishedCall:
            return {Verdict::note,
                    fmt::format("Not complete: {} has no end in the log", incident.scope)};
        default:
            break;
    }
    if (acquisition.isMixed || acquisition.isCut) {
        return {Verdict::note, "Not complete: the log does not show that the card was read"};
    }
    return {Verdict::problem,
            "The card was not acquired: it is of no known kind, or its files could not be read"};
}

}  // namespace

const LogExplanation* explanationOfMessage(std::string_view message) {
    const auto* row = std::find_if(
        std::begin(messages), std::end(messages),
        [&](const LogExplanation& known) { return message.starts_with(known.beginning); });
    return row == std::end(messages) ? nullptr : row;
}

void explainLog(const LogReader& log, const std::string& name, Findings& findings) {
    findings.begin(fmt::format("Log {}", name));
    if (log.firstTime().empty()) {
        findings.problem("log.foreign", "lines",
                         log.lines() == 0
                             ? std::string("the file is empty")
                             : fmt::format("none of {} is a line of the driver's log", log.lines()),
                         "Is it the right file? It is named Kelmora-ID-minidriver.log.");
        return;
    }
    findings.well("log.lines", "lines",
                  fmt::format("{}, from {} to {}", log.lines(), log.firstTime(), log.lastTime()));
    if (log.strays() > 0) {
        findings.note("log.cut", "lines",
                      fmt::format("{} cut, run together or not the driver's", log.strays()),
                      "Several processes write at the same time; what was cut is left out here.");
    }
    if (log.troubledCount() == 0) {
        findings.well("log.acquisitions", "acquisitions",
                      fmt::format("{}, no call in them failed", log.acquisitions()));
        return;
    }
    findings.note("log.acquisitions", "acquisitions",
                  fmt::format("{}; something went wrong in {}{}; the last one {}",
                              log.acquisitions(), log.troubledCount(),
                              log.troubledCount() > log.troubled().size()
                                  ? fmt::format(" (the last {} below)", log.troubled().size())
                                  : "",
                              log.lastIsWell() ? "went well" : "among them"));
    for (const LogAcquisition& acquisition : log.troubled()) {
        findings.begin(
            acquisition.number == 0
                ? fmt::format("Ahead of the first acquisition, until {}", acquisition.end)
                : fmt::format("Acquisition {} of {}: {} to {}", acquisition.number,
                              log.acquisitions(), acquisition.begin, acquisition.end));
        explainAcquisition(acquisition, findings);
    }
}

void explainAcquisition(const LogAcquisition& acquisition, Findings& findings) {
    if (acquisition.isMixed) {
        findings.note("log.mixed", "mixed",
                      "several acquisitions were open at once, of one process or of several: "
                      "the log does not tell whose a line is");
    }
    if (acquisition.droppedIncidents > 0) {
        findings.note(
            "log.more", "more",
            fmt::format("{} earlier kinds of failure are left out", acquisition.droppedIncidents));
    }
    for (const LogIncident& incident : acquisition.incidents) {
        explainIncident(acquisition, incident, findings);
    }
}

LogOutcome outcomeOf(const LogAcquisition& acquisition) {
    LogOutcome outcome{Verdict::well, "Every call that a logon needs came back well."};
    if (acquisition.isMixed) {
        outcome = {Verdict::note,
                   "Several acquisitions were open at once: the log does not tell whose a line is"};
    }
    for (const LogIncident& incident : acquisition.incidents) {
        if (isUsual(incident)) continue;
        LogOutcome one = outcomeOf(acquisition, incident);
        if (one.verdict >= outcome.verdict) outcome = std::move(one);
    }
    return outcome;
}

void explainLogFile(const std::filesystem::path& file, Findings& findings) {
    LogReader log;
    forEachPiece(file, [&](ByteView piece) { log.add(piece); });
    log.finish();
    explainLog(log, shown(file), findings);
}

}  // namespace cardhost::doctor
