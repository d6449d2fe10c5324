// cardhost decrypt: a block that was encrypted to the certificate of a container.
#include <memory>

#include <fmt/format.h>

#include "commands/commands.h"
#include "commands/key_command.h"
#include "files.h"
#include "key_operations.h"
#include "options.h"

namespace cardhost {

namespace {

constexpr std::size_t longestBlock = 65536;

void decrypt(const KeyOptions& options, const CommonOptions& common, std::FILE* stream) {
    const Bytes block = contentOf(os::pathOf(options.in), longestBlock);
    KeyUse use;
    use.check = [&](const Container& container) {
        const PublicKey& key = container.certificate.key;
        if (key.isEc) {
            throw Failure(ExitCode::usage,
                          fmt::format("container {} has no RSA key to decrypt with, but {}; see "
                                      "agree",
                                      container.index, key.description));
        }
        if (block.size() != (key.bits + 7) / 8) {
            throw Failure(ExitCode::file,
                          fmt::format("{} has {} bytes; a block for this key has {}", options.in,
                                      block.size(), (key.bits + 7) / 8));
        }
    };
    use.work = [&](Acquisition& acquisition, const Container& container) {
        return decipher(acquisition, container, block);
    };
    use.tell = [&](Report& report, const Container& container, const Bytes& message) {
        report.heading("Decrypted");
        report.row("block", fmt::format("{}, {} bytes", options.in, block.size()));
        report.row("key", fmt::format("container {}, {}", container.index,
                                      container.certificate.key.description));
        report.row("written", fmt::format("{}, {} bytes", options.out, message.size()));
    };
    useKey(options, common, stream, use);
}

}  // namespace

void addDecrypt(Commands& commands) {
    auto options = std::make_shared<KeyOptions>();
    Command command =
        commands.add("decrypt",
                     "Have the card decrypt an RSA block with PKCS#1 v1.5 padding, such as\n"
                     "openssl pkeyutl -encrypt -certin -inkey CERTIFICATE.pem makes");
    addKeyOptions(command, *options,
                  {"Whose key decrypts", "--in", "The encrypted block", "Where the message goes"});
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        decrypt(*options, common, stream);
    });
}

}  // namespace cardhost
