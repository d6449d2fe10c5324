#include "virtual_card/file_system.h"

#include <algorithm>
#include <stdexcept>

namespace virtual_card {

namespace {

std::uint16_t identifierAt(ByteView path, std::size_t position) {
    return static_cast<std::uint16_t>((path[position] << 8) | path[position + 1]);
}

}  // namespace

File* File::child(std::uint16_t wanted) const {
    auto found = std::find_if(children.begin(), children.end(),
                              [&](const auto& file) { return file->identifier == wanted; });
    return found == children.end() ? nullptr : found->get();
}

FileSystem::FileSystem() : root_(std::make_unique<File>()), currentDirectory_(root_.get()) {
    root_->identifier = masterFile;
    root_->isDirectory = true;
}

void FileSystem::add(ByteView path, Bytes content) {
    make(path, false).content = std::move(content);
}

void FileSystem::addDirectory(ByteView path) {
    make(path, true);
}

File& FileSystem::make(ByteView path, bool isDirectory) {
    if (path.size() < 4 || path.size() % 2 != 0 || identifierAt(path, 0) != masterFile) {
        throw std::invalid_argument("not a path from the master file");
    }
    File* file = root_.get();
    for (std::size_t position = 2; position < path.size(); position += 2) {
        std::uint16_t identifier = identifierAt(path, position);
        File* next = file->child(identifier);
        if (next == nullptr) {
            auto made = std::make_unique<File>();
            made->identifier = identifier;
            made->isDirectory = isDirectory || position + 2 < path.size();
            made->parent = file;
            next = file->children.emplace_back(std::move(made)).get();
        }
        file = next;
    }
    return *file;
}

File* FileSystem::find(ByteView path) const {
    if (path.empty() || path.size() % 2 != 0) return nullptr;
    File* file = currentDirectory_;
    std::size_t position = 0;
    if (identifierAt(path, 0) == masterFile) {
        file = root_.get();
        position = 2;
    }
    for (; position < path.size() && file != nullptr; position += 2) {
        file = file->child(identifierAt(path, position));
    }
    return file;
}

void FileSystem::select(File& file) {
    currentDirectory_ = file.isDirectory ? &file : file.parent;
    currentFile_ = file.isDirectory ? nullptr : &file;
}

}  // namespace virtual_card
