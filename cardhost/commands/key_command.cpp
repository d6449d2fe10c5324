#include "commands/key_command.h"

#include <CLI/CLI.hpp>

#include "files.h"

namespace cardhost {

void addKeyOptions(CLI::App& command, KeyOptions& options, const KeyOptionTexts& texts) {
    if (texts.container != nullptr) {
        command.add_option("--container", options.container, texts.container)
            ->check(CLI::Range(0, 255).description(""))
            ->capture_default_str()
            ->type_name("N");
    }
    command.add_option(texts.inName, options.in, texts.in)->required()->type_name("FILE");
    command.add_option("--out", options.out, texts.out)->required()->type_name("FILE");
    command.add_flag("--no-pin", options.withoutPin,
                     "Do not verify the PIN first, to see what the card says to that");
    addPinOptions(command, options.pin);
}

void useKey(const KeyOptions& options, const CommonOptions& common, std::FILE* stream,
            const KeyUse& use) {
    Session session(common, stream);
    const Container container = containerAt(session.acquisition, options.container);
    use.check(container);
    if (!options.withoutPin) verifyPin(session.acquisition, container.pin, options.pin);
    const Bytes made = use.work(session.acquisition, container);
    writeFile(os::pathOf(options.out), ByteView(made));
    use.tell(session.report, container, made);
}

}  // namespace cardhost
