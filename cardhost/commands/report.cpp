// cardhost report: one logon as a page to look at.
#include <memory>

#include <botan/hash.h>
#include <fmt/format.h>

#include "card_types.h"
#include "commands/commands.h"
#include "doctor/log_explanation.h"
#include "driver_log.h"
#include "files.h"
#include "key_operations.h"
#include "known_inputs.h"
#include "options.h"
#include "pin_query.h"
#include "pins.h"
#include "report_page.h"
#include "session.h"

namespace cardhost {

namespace {

struct ReportOptions {
    std::string out;
    std::string log;
    PinOptions pin;
};

using Group = ReportPage::Group;

Group cardGroup(Session& session) {
    const CardGeneration* generation = generationOf(session.card.atr());
    Group group{"The card", {}};
    group.rows.emplace_back("type", generation == nullptr ? std::string("not known by its ATR")
                                                          : fmt::format("{}, {}", generation->type,
                                                                        generation->description));
    group.rows.emplace_back("reader", session.card.reader());
    group.rows.emplace_back("ATR", hexSpaced(session.card.atr()));
    group.rows.emplace_back("identifier", hexSpaced(session.acquisition.readFile("", "cardid")));
    return group;
}

Group containerGroup(const Container& container) {
    const Certificate& certificate = container.certificate;
    return {fmt::format("Key {}{}", container.index, container.isDefault ? ", the default" : ""),
            {{"use", container.isKeyExchange ? "logon, decryption" : "signatures"},
             {"key", certificate.key.description},
             {"PIN", pinText(container.pin)},
             {"holder", certificate.subject},
             {"issuer", certificate.issuer},
             {"valid", fmt::format("{} to {}", certificate.notBefore, certificate.notAfter)}}};
}

Group pinGroup(Session& session) {
    Group group{"PINs", {}};
    for (const doctor::PinTries& tries : askPinTries(session.card, session.trace)) {
        group.rows.emplace_back("PIN " + pinText(static_cast<PIN_ID>(tries.pin)), triesText(tries));
    }
    return group;
}

void signChallenge(Acquisition& acquisition, const Container& container) {
    const Hash& hash = *hashNamed("sha256");
    const auto digest =
        Botan::HashFunction::create_or_throw(hash.botanName)->process(knownChallenge());
    const Scheme scheme = container.certificate.key.isEc ? Scheme::ecdsa : Scheme::pkcs1;
    signHash(acquisition, container, scheme, Provider::keyStorage, hash,
             Bytes(digest.begin(), digest.end()));
}

/// The road of a logon; gives what became of it.
std::string walk(Session& session, const ReportOptions& options, ReportPage& page) {
    page.found.push_back(cardGroup(session));
    const auto containers = containersOf(session.acquisition);
    for (const Container& container : containers) page.found.push_back(containerGroup(container));
    session.acquisition.propertyAs<PIN_INFO>("PIN Information", authenticationPin);
    page.found.insert(page.found.begin() + 1, pinGroup(session));
    if (containers.empty()) return "The card has no key to log on with.";
    const bool hasPin = !options.pin.pins.empty() || !options.pin.file.empty();
    if (!hasPin && session.card.isRecording()) {
        session.acquisition.close();
        return "The card was read. No PIN was given (--pin or --pin-file), so nothing was signed.";
    }
    verifyPin(session.acquisition, containers.front().pin, options.pin);
    signChallenge(session.acquisition, containers.front());
    session.acquisition.close();
    return "The logon works: the card was read, the PIN was right, the challenge was signed.";
}

void makeFromCard(const ReportOptions& options, CommonOptions common, ReportPage& page,
                  std::optional<Failure>& failed) {
    LogFollower log(os::driverLogFile());
    recording::Conversation& conversation = page.conversation;
    const auto addLog = [&] {
        for (std::string& line : log.newLines()) {
            conversation.entries.push_back(recording::LogLine{std::move(line)});
        }
    };
    common.kept = &conversation;
    common.beforeCall = [&](const std::string&) { addLog(); };
    try {
        Session session(common, stderr);
        page.outcome = walk(session, options, page);
    } catch (const Failure& failure) {
        page.outcome = failure.what();
        page.mark = ReportPage::Mark::bad;
        failed = failure;
    }
    addLog();
}

void makeFromLog(const ReportOptions& options, ReportPage& page) {
    LoggedLogon logon = lastLogonInLog(os::pathOf(options.log));
    const doctor::LogOutcome outcome = doctor::outcomeOf(logon.acquisition);
    page.outcome = outcome.text;
    page.mark = outcome.verdict == doctor::Verdict::well      ? ReportPage::Mark::good
                : outcome.verdict == doctor::Verdict::problem ? ReportPage::Mark::bad
                                                              : ReportPage::Mark::unclear;
    page.isOfLog = true;
    page.foundHeading = "What the log tells of it";
    doctor::Findings findings;
    explainAcquisition(logon.acquisition, findings);
    for (const doctor::Finding& finding : findings.all()) {
        Group group{finding.subject, {{std::string(verdictName(finding.verdict)), finding.found}}};
        if (!finding.advice.empty()) group.rows.emplace_back("what to do", finding.advice);
        page.found.push_back(std::move(group));
    }
    if (logon.droppedCalls > 0) {
        page.leftOut =
            fmt::format("The first {} calls of this acquisition are left out.", logon.droppedCalls);
    }
    page.conversation = std::move(logon.conversation);
}

void report(const ReportOptions& options, const CommonOptions& common, std::FILE* stream) {
    requireWritable(os::pathOf(options.out));
    ReportPage page;
    std::optional<Failure> failed;
    if (options.log.empty()) {
        page.title = "A logon with a smart card";
        makeFromCard(options, common, page, failed);
        // Where there was no card, or nothing of it was seen, there is nothing to look at.
        if (failed && (page.conversation.entries.empty() || failed->code() == ExitCode::unseen)) {
            throw Failure(*failed);
        }
    } else {
        page.title = "The last logon in the driver's log";
        makeFromLog(options, page);
    }
    writeFile(os::pathOf(options.out), htmlOf(page));
    Report text(stream);
    text.heading("Report");
    text.row("outcome", page.outcome);
    text.row("written", options.out);
    if (failed) throw Failure(*failed);
}

}  // namespace

void addReport(Commands& commands) {
    auto options = std::make_shared<ReportOptions>();
    Command command = commands.add(
        "report",
        "Walk through one logon, and write it as a page to look at: every call and command, "
        "what they mean, and where the time went");
    command.option("-o,--out", options->out, "Where the page goes").required().typeName("FILE");
    command
        .option("--log", options->log,
                "Show the last logon that the driver's log tells of instead; no card is "
                "asked")
        .typeName("FILE");
    addPinOptions(command, options->pin);
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        report(*options, common, stream);
    });
}

}  // namespace cardhost
