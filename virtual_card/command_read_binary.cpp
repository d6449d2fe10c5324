#include <algorithm>

#include "virtual_card/commands.h"

namespace virtual_card {

Reply readBinary(CardState& card, const Command& command) {
    // The high bit of P1 marks a short file identifier, which these cards give to no file.
    if ((command.p1 & 0x80) != 0) return {{}, sw::fileNotFound};
    if (!command.data.empty() || !command.le) return {{}, sw::wrongLength};
    const File* file = card.files.currentFile();
    if (file == nullptr) return {{}, sw::noCurrentFile};

    const std::size_t offset = static_cast<std::size_t>(command.p1) * 256 + command.p2;
    if (offset >= file->content.size()) return {{}, sw::offsetOutsideFile};
    const std::size_t count = std::min(*command.le, file->content.size() - offset);
    ByteView part = ByteView(file->content).subspan(offset, count);
    // Le 00 asks for what there is, up to 256 bytes; any other Le for that many.
    const bool isShort = count < *command.le && *command.le != 256;
    return {Bytes(part.begin(), part.end()), isShort ? sw::endOfFile : sw::ok};
}

}  // namespace virtual_card
