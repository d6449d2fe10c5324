// cardhost sign: a file's hash, signed by the key of a container.
#include <map>
#include <memory>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "files.h"
#include "key_operations.h"
#include "openssl_hints.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

namespace {

const std::map<std::string, Scheme> schemes = {
    {"pkcs1", Scheme::pkcs1}, {"pss", Scheme::pss}, {"ecdsa", Scheme::ecdsa}};
const std::map<std::string, Provider> providers = {{"ksp", Provider::keyStorage},
                                                   {"csp", Provider::cryptoApi}};

struct SignOptions {
    unsigned container = 0;
    std::string hash = "sha256";
    std::string scheme;
    std::string provider = "ksp";
    std::string in;
    std::string out;
    bool withoutPin = false;
    PinOptions pin;
};

Scheme schemeOf(const SignOptions& options, const Container& container) {
    const bool isEc = container.certificate.key.isEc;
    if (options.scheme.empty()) return isEc ? Scheme::ecdsa : Scheme::pkcs1;
    const Scheme scheme = schemes.at(options.scheme);
    if (isEc != (scheme == Scheme::ecdsa)) {
        throw Failure(
            ExitCode::usage,
            fmt::format("the scheme {} does not fit container {}, whose key is {}", options.scheme,
                        container.index, container.certificate.key.description));
    }
    return scheme;
}

void checkProvider(const SignOptions& options, Scheme scheme, const Hash& hash) {
    if (options.provider != "csp") return;
    if (scheme != Scheme::pkcs1 || hash.algorithm == 0) {
        throw Failure(ExitCode::usage,
                      "the older provider (csp) signs by pkcs1 only, and not with sha224");
    }
}

void sign(const SignOptions& options, const CommonOptions& common, std::FILE* stream) {
    const Hash& hash = *hashNamed(options.hash);
    const Bytes hashValue = hashOfFile(hash, os::pathOf(options.in));
    Session session(common, stream);
    const Container container = containerAt(session.acquisition, options.container);
    const Scheme scheme = schemeOf(options, container);
    checkProvider(options, scheme, hash);
    if (!options.withoutPin) verifyPin(session.acquisition, container.pin, options.pin);
    const Bytes signature = signHash(session.acquisition, container, scheme,
                                     providers.at(options.provider), hash, hashValue);
    writeFile(os::pathOf(options.out), ByteView(signature));

    Report& report = session.report;
    report.heading("Signature");
    report.row("file", options.in);
    report.row(hash.name, hex(hashValue));
    report.row("key", fmt::format("container {}, {}", container.index,
                                  container.certificate.key.description));
    report.row("written", fmt::format("{}, {} bytes", options.out, signature.size()));
    report.row("check it with",
               verifyCommand(scheme, hash, "PUBLIC-KEY.pem", options.out, options.in));
}

}  // namespace

void addSign(CLI::App& program, Action& action) {
    auto options = std::make_shared<SignOptions>();
    auto* command = program.add_subcommand(
        "sign",
        "Hash a file and have the card sign the hash; the signature is one that openssl "
        "verifies");
    command->add_option("--container", options->container, "Whose key signs")
        ->check(CLI::Range(0, 255).description(""))
        ->capture_default_str()
        ->type_name("N");
    command->add_option("--hash", options->hash, "The hash function; sha224 for EC keys only")
        ->check(CLI::IsMember(hashNames()))
        ->capture_default_str()
        ->type_name("NAME");
    command
        ->add_option(
            "--scheme", options->scheme,
            "pkcs1 or pss for an RSA key, ecdsa for an EC key; pkcs1 or ecdsa if not given")
        ->check(CLI::IsMember({"pkcs1", "pss", "ecdsa"}))
        ->type_name("NAME");
    command
        ->add_option("--provider", options->provider,
                     "Which of the platform's providers to act as: ksp names the hash in padding "
                     "information, csp by an ALG_ID (pkcs1 only)")
        ->check(CLI::IsMember({"ksp", "csp"}))
        ->capture_default_str()
        ->type_name("NAME");
    command->add_option("--in", options->in, "The file to sign")->required()->type_name("FILE");
    command->add_option("--out", options->out, "Where the signature goes")
        ->required()
        ->type_name("FILE");
    command->add_flag("--no-pin", options->withoutPin,
                      "Do not verify the PIN first, to see what the card says to that");
    addPinOptions(*command, options->pin);
    command->callback([options, &action] {
        action = [options](const CommonOptions& common, std::FILE* stream) {
            sign(*options, common, stream);
        };
    });
}

}  // namespace cardhost
