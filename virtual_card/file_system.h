// The card's file system: a master file, directories (dedicated files) and transparent elementary
// files, with two-byte identifiers, and what of it is selected (ISO/IEC 7816-4, 7.1 and 7.2).
#pragma once

#include <memory>

#include "virtual_card/bytes.h"

namespace virtual_card {

inline constexpr std::uint16_t masterFile = 0x3F00;
inline constexpr std::uint16_t esignDirectory = 0x5016;

struct File {
    std::uint16_t identifier = 0;
    bool isDirectory = false;
    Bytes content;           ///< of an elementary file
    File* parent = nullptr;  ///< nullptr for the master file alone
    std::vector<std::unique_ptr<File>> children;

    /// The child of that identifier, or nullptr.
    File* child(std::uint16_t wanted) const;
};

class FileSystem {
public:
    FileSystem();

    /// Adds an elementary file under a path from the master file, such as 3F 00 50 31; makes the
    /// directories on the way.
    void add(ByteView path, Bytes content);
    void addDirectory(ByteView path);

    File& root() const { return *root_; }
    File& currentDirectory() const { return *currentDirectory_; }
    /// The selected elementary file, or nullptr.
    const File* currentFile() const { return currentFile_; }

    /// The file at the end of a path of two-byte identifiers: from the master file if the path
    /// begins with its identifier, from the current directory otherwise. nullptr if there is none.
    File* find(ByteView path) const;

    /// Makes a directory the current one (no elementary file is current then), or an elementary
    /// file the current one and its directory with it.
    void select(File& file);
    /// As after power-on: the master file.
    void reset() { select(*root_); }

private:
    File& make(ByteView path, bool isDirectory);

    std::unique_ptr<File> root_;
    File* currentDirectory_;
    File* currentFile_ = nullptr;
};

}  // namespace virtual_card
