// cardhost sign: a file's hash, signed by the key of a container.
#include <map>
#include <memory>

#include <fmt/format.h>

#include "commands/commands.h"
#include "commands/key_command.h"
#include "files.h"
#include "key_operations.h"
#include "openssl_hints.h"
#include "options.h"

namespace cardhost {

namespace {

const std::map<std::string, Scheme> schemes = {
    {"pkcs1", Scheme::pkcs1}, {"pss", Scheme::pss}, {"ecdsa", Scheme::ecdsa}};
const std::map<std::string, Provider> providers = {{"ksp", Provider::keyStorage},
                                                   {"csp", Provider::cryptoApi}};

struct SignOptions {
    KeyOptions key;
    std::string hash = "sha256";
    std::string scheme;
    std::string provider = "ksp";
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
    const Bytes hashValue = hashOfFile(hash, os::pathOf(options.key.in));
    KeyUse use;
    use.check = [&](const Container& container) {
        checkProvider(options, schemeOf(options, container), hash);
    };
    use.work = [&](Acquisition& acquisition, const Container& container) {
        return signHash(acquisition, container, schemeOf(options, container),
                        providers.at(options.provider), hash, hashValue);
    };
    use.tell = [&](Report& report, const Container& container, const Bytes& signature) {
        report.heading("Signature");
        report.row("file", options.key.in);
        report.row(hash.name, hex(hashValue));
        report.row("key", fmt::format("container {}, {}", container.index,
                                      container.certificate.key.description));
        report.row("written", fmt::format("{}, {} bytes", options.key.out, signature.size()));
        report.commandRow("check it with",
                          verifyCommand(schemeOf(options, container), hash, "PUBLIC-KEY.pem",
                                        options.key.out, options.key.in));
    };
    useKey(options.key, common, stream, use);
}

}  // namespace

void addSign(Commands& commands) {
    auto options = std::make_shared<SignOptions>();
    Command command = commands.add(
        "sign",
        "Hash a file and have the card sign the hash; the signature is one that openssl "
        "verifies");
    command.option("--hash", options->hash, "The hash function; sha224 for EC keys only")
        .oneOf(hashNames())
        .showDefault()
        .typeName("NAME");
    command
        .option("--scheme", options->scheme,
                "pkcs1 or pss for an RSA key, ecdsa for an EC key; pkcs1 or ecdsa if not given")
        .oneOf({"pkcs1", "pss", "ecdsa"})
        .typeName("NAME");
    command
        .option("--provider", options->provider,
                "Which of the platform's providers to act as: ksp names the hash in padding "
                "information, csp by an ALG_ID (pkcs1 only)")
        .oneOf({"ksp", "csp"})
        .showDefault()
        .typeName("NAME");
    addKeyOptions(command, options->key,
                  {"Whose key signs", "--in", "The file to sign", "Where the signature goes"});
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        sign(*options, common, stream);
    });
}

}  // namespace cardhost
