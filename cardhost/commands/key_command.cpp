#include "commands/key_command.h"

#include "files.h"
#include "options.h"

namespace cardhost {

void addKeyOptions(Command& command, KeyOptions& options, const KeyOptionTexts& texts) {
    if (texts.container != nullptr) {
        command.option("--container", options.container, texts.container)
            .between(0, 255)
            .showDefault()
            .typeName("N");
    }
    command.option(texts.inName, options.in, texts.in).required().typeName("FILE");
    command.option("--out", options.out, texts.out).required().typeName("FILE");
    command.flag("--no-pin", options.withoutPin,
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
