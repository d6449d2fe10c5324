// cardhost decrypt: a block that was encrypted to the certificate of a container.
#include <memory>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "files.h"
#include "key_operations.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

namespace {

constexpr std::size_t longestBlock = 65536;

struct DecryptOptions {
    unsigned container = 0;
    std::string in;
    std::string out;
    bool withoutPin = false;
    PinOptions pin;
};

void decrypt(const DecryptOptions& options, const CommonOptions& common, std::FILE* stream) {
    const Bytes block = contentOf(os::pathOf(options.in), longestBlock);
    Session session(common, stream);
    const Container container = containerAt(session.acquisition, options.container);
    const PublicKey& key = container.certificate.key;
    if (key.isEc) {
        throw Failure(ExitCode::usage,
                      fmt::format("container {} has no RSA key to decrypt with, but {}; see agree",
                                  container.index, key.description));
    }
    if (block.size() != (key.bits + 7) / 8) {
        throw Failure(ExitCode::file, fmt::format("{} has {} bytes; a block for this key has {}",
                                                  options.in, block.size(), (key.bits + 7) / 8));
    }
    if (!options.withoutPin) verifyPin(session.acquisition, container.pin, options.pin);
    const Bytes message = decipher(session.acquisition, container, block);
    writeFile(os::pathOf(options.out), ByteView(message));

    session.report.heading("Decrypted");
    session.report.row("block", fmt::format("{}, {} bytes", options.in, block.size()));
    session.report.row("key", fmt::format("container {}, {}", container.index, key.description));
    session.report.row("written", fmt::format("{}, {} bytes", options.out, message.size()));
}

}  // namespace

void addDecrypt(CLI::App& program, Action& action) {
    auto options = std::make_shared<DecryptOptions>();
    auto* command = program.add_subcommand(
        "decrypt",
        "Have the card decrypt an RSA block with PKCS#1 v1.5 padding, such as\n"
        "openssl pkeyutl -encrypt -certin -inkey CERTIFICATE.pem makes");
    command->add_option("--container", options->container, "Whose key decrypts")
        ->check(CLI::Range(0, 255).description(""))
        ->capture_default_str()
        ->type_name("N");
    command->add_option("--in", options->in, "The encrypted block")->required()->type_name("FILE");
    command->add_option("--out", options->out, "Where the message goes")
        ->required()
        ->type_name("FILE");
    command->add_flag("--no-pin", options->withoutPin,
                      "Do not verify the PIN first, to see what the card says to that");
    addPinOptions(*command, options->pin);
    command->callback([options, &action] {
        action = [options](const CommonOptions& common, std::FILE* stream) {
            decrypt(*options, common, stream);
        };
    });
}

}  // namespace cardhost
