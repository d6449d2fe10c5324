// cardhost agree: a key agreed on with another party's public key.
#include <memory>
#include <stdexcept>

#include <fmt/format.h>

#include "commands/commands.h"
#include "commands/key_command.h"
#include "files.h"
#include "key_operations.h"
#include "options.h"

namespace cardhost {

namespace {

constexpr std::size_t longestKeyFile = 65536;

struct AgreeOptions {
    KeyOptions key;  // its input is the other party's public key
    std::string hash;
    std::string prepend;
    std::string append;
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
    const std::string& peerFile = options.key.in;
    const CurvePoint peer =
        pointOfPublicKey(contentOf(os::pathOf(peerFile), longestKeyFile), peerFile);
    KeyUse use;
    use.check = [&](const Container& container) {
        if (!container.certificate.key.isEc) {
            throw Failure(
                ExitCode::usage,
                fmt::format("container 0 has no EC key to agree with, but {}; see decrypt",
                            container.certificate.key.description));
        }
        const std::string curve = curveOf(container.certificate);
        if (peer.curve != curve) {
            throw Failure(ExitCode::usage, fmt::format("the peer's key is on {}, the card's on {}",
                                                       peer.curve, curve));
        }
    };
    use.work = [&](Acquisition& acquisition, const Container& container) {
        return agree(acquisition, container, peer, derivation);
    };
    use.tell = [&](Report& report, const Container& container, const Bytes& key) {
        report.heading("Agreed key");
        report.row("card's key", container.certificate.key.description);
        report.row("peer's key", peerFile);
        report.row("derived by", derivation.hash == nullptr ? "the driver's default hash"
                                                            : std::string(derivation.hash->name));
        report.row("written", fmt::format("{}, {} bytes", options.key.out, key.size()));
    };
    useKey(options.key, common, stream, use);
}

}  // namespace

void addAgree(Commands& commands) {
    auto options = std::make_shared<AgreeOptions>();
    Command command = commands.add(
        "agree",
        "Agree on a secret with another party's EC key (ECDH, the key of container 0) and "
        "derive hash(prepend, secret, append) from it");
    addKeyOptions(command, options->key,
                  {nullptr, "--peer", "The other party's public key, PEM or DER",
                   "Where the derived key goes"});
    command
        .option("--hash", options->hash,
                "The hash of the derivation; the driver's own default if not given")
        .oneOf({"sha1", "sha256", "sha384", "sha512"})
        .typeName("NAME");
    command.option("--prepend", options->prepend, "Bytes ahead of the secret").typeName("HEX");
    command.option("--append", options->append, "Bytes behind the secret").typeName("HEX");
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        agreeOnKey(*options, common, stream);
    });
}

}  // namespace cardhost
