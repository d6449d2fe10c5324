#include "virtual_card/commands.h"
#include "virtual_card/tlv.h"

namespace virtual_card {

namespace {

// P1 of SELECT (ISO/IEC 7816-4, table 62).
constexpr std::uint8_t byIdentifier = 0x00;
constexpr std::uint8_t childDirectory = 0x01;
constexpr std::uint8_t fileOfDirectory = 0x02;
constexpr std::uint8_t parentDirectory = 0x03;
constexpr std::uint8_t byApplicationIdentifier = 0x04;
constexpr std::uint8_t byPath = 0x09;

// P2: what the reply is to bring.
constexpr std::uint8_t wantsFci = 0x00;
constexpr std::uint8_t wantsFcp = 0x04;
constexpr std::uint8_t wantsNothing = 0x0C;

Bytes fileSize(const Generation& generation, std::size_t size) {
    // Tag 81 counts structural bytes as well; the generations that have it alone store none.
    constexpr std::size_t structure = 16;
    Bytes dataBytes{static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
    std::size_t all = size + structure;
    Bytes allBytes{static_cast<std::uint8_t>(all >> 8), static_cast<std::uint8_t>(all)};
    switch (generation.fcpSize) {
        case FcpSize::Tag80:
            return tlv(0x80, dataBytes);
        case FcpSize::Tag81:
            return tlv(0x81, dataBytes);
        case FcpSize::Tag81AheadOf80: {
            Bytes both = tlv(0x81, allBytes);
            append(both, tlv(0x80, dataBytes));
            return both;
        }
    }
    return {};
}

/// The file control parameters (ISO/IEC 7816-4, 7.4): size, kind, identifier, life cycle.
Bytes controlParameters(const Generation& generation, const File& file) {
    Bytes content;
    if (!file.isDirectory) append(content, fileSize(generation, file.content.size()));
    append(content, tlv(0x82, Bytes{static_cast<std::uint8_t>(file.isDirectory ? 0x38 : 0x01)}));
    append(content, tlv(0x83, Bytes{static_cast<std::uint8_t>(file.identifier >> 8),
                                    static_cast<std::uint8_t>(file.identifier & 0xFF)}));
    if (file.parent == nullptr)
        append(content, tlv(0x84, fromHex(generation.applicationIdentifier)));
    append(content, tlv(0x8A, Bytes{0x05}));
    return content;
}

/// Carries the selection out and gives what P2 asks for.
Reply selected(CardState& card, const Command& command, File* file) {
    if (file == nullptr) return {{}, sw::fileNotFound};
    card.files.select(*file);
    Bytes parameters = controlParameters(card.generation, *file);
    switch (command.p2) {
        case wantsFcp:
            return {tlv(0x62, parameters)};
        case wantsFci:
            return {tlv(0x6F, parameters)};
        default:
            return {};
    }
}

/// P1 00: the master file, a child, the parent, or a directory beside the current one.
File* anyFile(const FileSystem& files, std::uint16_t identifier) {
    File& here = files.currentDirectory();
    if (identifier == masterFile) return &files.root();
    if (File* child = here.child(identifier)) return child;
    if (here.parent == nullptr) return nullptr;
    if (here.parent->identifier == identifier) return here.parent;
    File* beside = here.parent->child(identifier);
    return beside != nullptr && beside->isDirectory ? beside : nullptr;
}

Reply selectChild(CardState& card, const Command& command, std::uint16_t identifier) {
    const SelectForms& forms = card.generation.select;
    std::uint16_t answer =
        command.p2 == wantsNothing ? forms.childWithoutReply : forms.childWithFcp;
    if (identifier == masterFile) answer = forms.masterFileAsChild;
    if (answer != sw::ok) return {{}, answer};
    if (identifier == masterFile) return selected(card, command, &card.files.root());
    File* child = card.files.currentDirectory().child(identifier);
    if (child != nullptr && !child->isDirectory) child = nullptr;
    return selected(card, command, child);
}

Reply selectFile(CardState& card, const Command& command) {
    const SelectForms& forms = card.generation.select;
    std::uint16_t answer = command.data.size() == 2 ? forms.fileByIdentifier : forms.fileByPath;
    if (answer != sw::ok) return {{}, answer};
    File* file = card.files.find(command.data);
    if (file != nullptr && file->isDirectory) file = nullptr;
    return selected(card, command, file);
}

Reply selectPath(CardState& card, const Command& command) {
    const SelectForms& forms = card.generation.select;
    File* file = card.files.find(command.data);
    bool isFile = file != nullptr && !file->isDirectory;
    std::uint16_t answer = isFile ? forms.pathToFile : forms.pathToDirectory;
    if (answer != sw::ok) return {{}, answer};
    return selected(card, command, file);
}

Reply selectApplication(CardState& card, const Command& command) {
    if (command.data != fromHex(card.generation.applicationIdentifier)) {
        return {{}, card.generation.select.unknownApplicationId};
    }
    card.security.environment = {};
    return selected(card, command, &card.files.root());
}

}  // namespace

Reply select(CardState& card, const Command& command) {
    if (command.p2 != wantsFci && command.p2 != wantsFcp && command.p2 != wantsNothing) {
        return {{}, sw::incorrectP1P2};
    }
    const bool isIdentifier = command.data.size() == 2;
    const std::uint16_t identifier =
        isIdentifier ? static_cast<std::uint16_t>((command.data[0] << 8) | command.data[1]) : 0;
    switch (command.p1) {
        case byIdentifier:
            if (command.data.empty()) return selected(card, command, &card.files.root());
            if (!isIdentifier) return {{}, sw::wrongLength};
            return selected(card, command, anyFile(card.files, identifier));
        case childDirectory:
            if (!isIdentifier) return {{}, sw::wrongLength};
            return selectChild(card, command, identifier);
        case fileOfDirectory:
            return selectFile(card, command);
        case parentDirectory:
            if (!command.data.empty()) return {{}, sw::wrongLength};
            return selected(card, command, card.files.currentDirectory().parent);
        case byApplicationIdentifier:
            return selectApplication(card, command);
        case byPath:
            return selectPath(card, command);
        default:
            return {{}, sw::incorrectP1P2};
    }
}

}  // namespace virtual_card
