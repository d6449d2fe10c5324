// cardhost record: what a card says on the usual journeys, kept as a text that can be replayed.
#include <memory>

#include <botan/hash.h>
#include <fmt/format.h>

#include "anonymous.h"
#include "card_types.h"
#include "commands/commands.h"
#include "directory_query.h"
#include "files.h"
#include "key_operations.h"
#include "known_inputs.h"
#include "options.h"
#include "pin_query.h"
#include "pins.h"
#include "recording/writer.h"
#include "session.h"

namespace cardhost {

namespace {

constexpr const char* personalDataNotice =
    "A recording holds what the card holds of its holder: certificates with a name\n"
    "and an electronic client number, serial numbers, public keys, signatures. Give\n"
    "it to nobody who must not have them. PINs are never written; their lengths can\n"
    "be seen. With --anonymous all that is blanked at equal length.\n";

constexpr const char* anonymousNotice =
    "Names, numbers, keys and signatures are blanked in this recording. What stays:\n"
    "the type of card, its files and their lengths, issuers, months of validity, and\n"
    "the lengths of PINs. Read it before you give it away.\n";

struct RecordOptions {
    std::string out;
    bool isAnonymous = false;
    PinOptions pin;
    std::vector<std::string> signaturePins;
};

void readFiles(Acquisition& acquisition) {
    for (const std::string directory : {"", "mscp"}) {
        for (const std::string& name : acquisition.fileNames(directory)) {
            acquisition.readFile(directory, name);
        }
    }
}

void useKeyOnce(Acquisition& acquisition, const Container& container) {
    const Hash& hash = *hashNamed("sha256");
    const Bytes challenge = knownChallenge();
    const auto digest = Botan::HashFunction::create_or_throw(hash.botanName)->process(challenge);
    const bool isEc = container.certificate.key.isEc;
    signHash(acquisition, container, isEc ? Scheme::ecdsa : Scheme::pkcs1, Provider::keyStorage,
             hash, Bytes(digest.begin(), digest.end()));
    if (!isEc) {
        decipher(acquisition, container, knownBlock(container.certificate));
    } else if (container.index == 0) {
        agree(acquisition, container, knownPeer(container.certificate), {});
    }
}

/// The driver's refusals are part of what the card says, and end only the step.
void tryStep(Report& report, const std::string& label, const std::function<void()>& step) try {
    step();
    report.row(label, "recorded");
} catch (const Failure& failure) {
    if (failure.code() != ExitCode::refused) throw;
    report.row(label, failure.what());
}

void walk(Session& session, const RecordOptions& options) {
    Report& report = session.report;
    Acquisition& acquisition = session.acquisition;
    const CardGeneration* generation = generationOf(session.card.atr());
    report.row("card", generation == nullptr
                           ? std::string("not known by its ATR")
                           : fmt::format("type {}, {}", generation->type, generation->description));
    tryStep(report, "files", [&] { readFiles(acquisition); });
    std::vector<Container> containers;
    tryStep(report, "containers", [&] {
        containers = containersOf(acquisition);
        for (const Container& container : containers) acquisition.publicKeyBlob(container.index);
    });
    for (const PIN_ID pin : {authenticationPin, signaturePin}) {
        acquisition.propertyAs<PIN_INFO>("PIN Information", pin);
    }
    for (const doctor::PinTries& tries : askPinTries(session.card, session.trace)) {
        report.row(fmt::format("PIN {}", tries.pin), triesText(tries));
    }
    // What its row would tell, a card without a row is asked for.
    if (generation == nullptr) {
        const auto directories = askDirectories(session.card, session.trace);
        if (directories) report.row("directories", fmt::format("{} of 2 recorded", *directories));
    }
    for (const Container& container : containers) {
        PinOptions pin = options.pin;
        if (container.pin == signaturePin) pin = {options.signaturePins, {}};
        if (pin.pins.empty() && pin.file.empty()) continue;
        // A wrong PIN costs a try and ends the recording: it is not tried again.
        verifyPin(acquisition, container.pin, pin);
        tryStep(report, fmt::format("key {}", container.index),
                [&] { useKeyOnce(acquisition, container); });
    }
    acquisition.close();
}

void save(const RecordOptions& options, recording::Conversation& conversation, Report& report) {
    if (options.isAnonymous) anonymize(conversation);
    std::string text;
    std::size_t commands = 0;
    for (const recording::Entry& entry : conversation.entries) {
        if (std::holds_alternative<recording::Exchange>(entry)) ++commands;
    }
    recording::Writer writer([&](const std::string& line) { text += line + '\n'; });
    writer.note(std::string("Recorded by cardhost") + (options.isAnonymous ? ", anonymous" : "") +
                ": see docs/conversation-format.md");
    recording::write(conversation, writer);
    writeFile(os::pathOf(options.out), text);
    report.row("written", fmt::format("{}, {} commands", options.out, commands));
}

void record(const RecordOptions& options, CommonOptions common, std::FILE* stream) {
    requireWritable(os::pathOf(options.out));
    Report report(stream);
    report.line(options.isAnonymous ? anonymousNotice : personalDataNotice);
    recording::Conversation conversation;
    common.kept = &conversation;
    try {
        Session session(common, stream);
        walk(session, options);
    } catch (const Failure& failure) {
        // What was said until then is what someone has to see.
        if (!conversation.entries.empty() && failure.code() != ExitCode::unseen)
            save(options, conversation, report);
        throw;
    }
    save(options, conversation, report);
}

}  // namespace

void addRecord(Commands& commands) {
    auto options = std::make_shared<RecordOptions>();
    Command command = commands.add(
        "record",
        "Write what the card says on the usual journeys into a text that --replay takes: "
        "acquisition, files, PIN tries; with PINs also verification, signatures, decryption "
        "and key agreement");
    command.option("-o,--out", options->out, "Where the recording goes")
        .required()
        .typeName("FILE");
    command.flag("--anonymous", options->isAnonymous,
                 "Blank what tells the card and its holder from others, at equal length");
    addPinOptions(command, options->pin);
    command
        .option("--signature-pin", options->signaturePins,
                "The PIN of the signature keys; without it these are not used")
        .once()
        .typeName("PIN");
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        record(*options, common, stream);
    });
}

}  // namespace cardhost
