// cardhost logon: the road of one logon with a signature, step by step and in words.
#include <memory>

#include <botan/system_rng.h>
#include <fmt/format.h>

#include "card_types.h"
#include "commands/commands.h"
#include "files.h"
#include "key_operations.h"
#include "known_inputs.h"
#include "openssl_hints.h"
#include "options.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

namespace {

struct LogonOptions {
    std::string hash = "sha256";
    std::string out = ".";
    PinOptions pin;
};

/// The files that are left for whoever checks the logon.
struct LogonFiles {
    explicit LogonFiles(const std::filesystem::path& folder)
        : certificate(folder / "certificate.pem"),
          publicKey(folder / "public-key.pem"),
          challenge(folder / "challenge.bin"),
          signature(folder / "signature.bin") {}

    std::filesystem::path certificate;
    std::filesystem::path publicKey;
    std::filesystem::path challenge;
    std::filesystem::path signature;
};

void tellAcquisition(Session& session) {
    Report& report = session.report;
    const CardGeneration* generation = generationOf(session.card.atr());
    report.heading("1. The platform finds a card and has the driver acquire it");
    report.row("driver", shown(session.driver.file()));
    report.row("reader", session.card.reader());
    report.row("ATR", hexSpaced(session.card.atr()));
    report.row("recognised as",
               generation == nullptr
                   ? std::string("not known")
                   : fmt::format("card type {}, {}", generation->type, generation->description));
    report.line("  The driver has read the card's serial number and certificates: the only");
    report.line("  reading that there is. All that follows in step 2 comes from memory.");
}

Container tellKeys(Session& session) {
    Report& report = session.report;
    Acquisition& acquisition = session.acquisition;
    report.heading("2. The platform reads the card's files and chooses a key");
    report.row("cardid", hexSpaced(acquisition.readFile("", "cardid")));
    report.row("mscp/cmapfile", fmt::format("{} key containers", containerMap(acquisition).size()));
    const Container container = containerAt(acquisition, 0);
    report.row("container 0", container.name);
    report.row("mscp/" + container.certificateFile,
               fmt::format("{} bytes: the certificate of {}", container.certificate.der.size(),
                           container.certificate.subject));
    report.row("key", fmt::format("{}; the platform gets it in {} bytes",
                                  container.certificate.key.description,
                                  acquisition.publicKeyBlob(0).size()));
    return container;
}

void tellPin(Session& session, const Container& container, const PinOptions& options) {
    Report& report = session.report;
    report.heading("3. The user shows the PIN");
    const auto info = session.acquisition.propertyAs<PIN_INFO>("PIN Information", container.pin);
    report.row("wanted", "PIN " + pinText(container.pin));
    report.row("asked for by", info.PinType == ExternalPinType
                                   ? "the dialog of the card's own software"
                                   : "the platform (here: this program)");
    verifyPin(session.acquisition, container.pin, options);
    report.row("the card says", "right; the key is open now");
}

void tellSignature(Session& session, const Container& container, const LogonOptions& options,
                   const LogonFiles& files) {
    Report& report = session.report;
    const Hash& hash = *hashNamed(options.hash);
    const Scheme scheme = container.certificate.key.isEc ? Scheme::ecdsa : Scheme::pkcs1;
    report.heading("4. The card signs a challenge");
    Bytes challenge(challengeLength);
    Botan::system_rng().randomize(challenge.data(), challenge.size());
    writeFile(files.challenge, ByteView(challenge));
    const Bytes hashValue = hashOfFile(hash, files.challenge);
    const Bytes signature =
        signHash(session.acquisition, container, scheme, Provider::keyStorage, hash, hashValue);
    writeFile(files.signature, ByteView(signature));
    writeFile(files.certificate, certificatePem(container.certificate));
    writeFile(files.publicKey, publicKeyPem(container.certificate));
    report.row("challenge",
               fmt::format("{} random bytes in {}", challenge.size(), shown(files.challenge)));
    report.row(hash.name, hex(hashValue));
    report.row("signature",
               fmt::format("{} bytes in {}", signature.size(), shown(files.signature)));
    report.row("certificate", shown(files.certificate));
    report.row("public key", shown(files.publicKey));
    report.line("  Whoever asked for the logon checks the signature against the certificate:");
    report.line("  " + verifyCommand(scheme, hash, shown(files.publicKey), shown(files.signature),
                                     shown(files.challenge)));
}

void logon(const LogonOptions& options, const CommonOptions& common, std::FILE* stream) {
    const auto folder = os::pathOf(options.out);
    makeFolder(folder);
    Session session(common, stream);
    tellAcquisition(session);
    const Container container = tellKeys(session);
    tellPin(session, container, options.pin);
    tellSignature(session, container, options, LogonFiles(folder));
    session.acquisition.close();
    session.report.heading("5. The platform lets the card go");
    session.report.line("  The driver has freed what it held, and the card was left as it was.");
}

}  // namespace

void addLogon(Commands& commands) {
    auto options = std::make_shared<LogonOptions>();
    Command command =
        commands.add("logon",
                     "Walk through one logon with a signature and tell each step; leaves the "
                     "certificate, the challenge and the signature for openssl");
    command.option("-o,--out", options->out, "The folder for what is left")
        .showDefault()
        .typeName("FOLDER");
    command.option("--hash", options->hash, "The hash function")
        .oneOf({"sha1", "sha256", "sha384", "sha512"})
        .showDefault()
        .typeName("NAME");
    addPinOptions(command, options->pin);
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        logon(*options, common, stream);
    });
}

}  // namespace cardhost
