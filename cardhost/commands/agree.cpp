// cardhost agree: a key agreed on with another party's public key.
#include <memory>
#include <stdexcept>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "files.h"
#include "key_operations.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

namespace {

constexpr std::size_t longestKeyFile = 65536;

struct AgreeOptions {
    std::string peer;
    std::string hash;
    std::string prepend;
    std::string append;
    std::string out;
    bool withoutPin = false;
    PinOptions pin;
};

Bytes bytesOption(const std::string& option, const std::string& text) try {
    return bytesOfHex(text);
} catch (const std::invalid_argument& exception) {
    throw Failure(ExitCode::usage, fmt::format("{}: {}", option, exception.what()));
}

void agreeOnKey(const AgreeOptions& options, const CommonOptions& common, std::FILE* stream) {
    KeyDerivation derivation;
    derivation.hash = hashNamed(options.hash);
    derivation.prepend = bytesOption("--prepend", options.prepend);
    derivation.append = bytesOption("--append", options.append);
    const CurvePoint peer =
        pointOfPublicKey(contentOf(os::pathOf(options.peer), longestKeyFile), options.peer);
    Session session(common, stream);
    const Container container = containerAt(session.acquisition, 0);
    if (!container.certificate.key.isEc) {
        throw Failure(ExitCode::usage,
                      fmt::format("container 0 has no EC key to agree with, but {}; see decrypt",
                                  container.certificate.key.description));
    }
    const std::string curve = curveOf(container.certificate);
    if (peer.curve != curve) {
        throw Failure(ExitCode::usage,
                      fmt::format("the peer's key is on {}, the card's on {}", peer.curve, curve));
    }
    if (!options.withoutPin) verifyPin(session.acquisition, container.pin, options.pin);
    const Bytes key = agree(session.acquisition, container, peer, derivation);
    writeFile(os::pathOf(options.out), ByteView(key));

    session.report.heading("Agreed key");
    session.report.row("card's key", container.certificate.key.description);
    session.report.row("peer's key", options.peer);
    session.report.row("derived by", derivation.hash == nullptr
                                         ? "the driver's default hash"
                                         : std::string(derivation.hash->name));
    session.report.row("written", fmt::format("{}, {} bytes", options.out, key.size()));
}

}  // namespace

void addAgree(CLI::App& program, Action& action) {
    auto options = std::make_shared<AgreeOptions>();
    auto* command = program.add_subcommand(
        "agree",
        "Agree on a secret with another party's EC key (ECDH, the key of container 0) and "
        "derive hash(prepend, secret, append) from it");
    command->add_option("--peer", options->peer, "The other party's public key, PEM or DER")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("--hash", options->hash,
                     "The hash of the derivation; the driver's own default if not given")
        ->check(CLI::IsMember({"sha1", "sha256", "sha384", "sha512"}))
        ->type_name("NAME");
    command->add_option("--prepend", options->prepend, "Bytes ahead of the secret")
        ->type_name("HEX");
    command->add_option("--append", options->append, "Bytes behind the secret")->type_name("HEX");
    command->add_option("--out", options->out, "Where the derived key goes")
        ->required()
        ->type_name("FILE");
    command->add_flag("--no-pin", options->withoutPin,
                      "Do not verify the PIN first, to see what the card says to that");
    addPinOptions(*command, options->pin);
    command->callback([options, &action] {
        action = [options](const CommonOptions& common, std::FILE* stream) {
            agreeOnKey(*options, common, stream);
        };
    });
}

}  // namespace cardhost
