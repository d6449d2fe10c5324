#include "files.h"

#include <fstream>

#include <fmt/format.h>

#include "exit_codes.h"

namespace cardhost {

namespace {

constexpr std::size_t pieceSize = 65536;

}  // namespace

std::string shown(const std::filesystem::path& path) {
    const auto text = path.generic_u8string();
    return std::string(text.begin(), text.end());
}

void forEachPiece(const std::filesystem::path& file, const std::function<void(ByteView)>& use) {
    std::error_code ignored;
    std::ifstream stream(file, std::ios::binary);
    if (!stream || std::filesystem::is_directory(file, ignored)) {
        throw Failure(ExitCode::file, fmt::format("cannot read {}", shown(file)));
    }
    Bytes piece(pieceSize);
    do {
        stream.read(reinterpret_cast<char*>(piece.data()), pieceSize);
        use(ByteView(piece).first(static_cast<std::size_t>(stream.gcount())));
    } while (stream);
    if (stream.bad()) throw Failure(ExitCode::file, fmt::format("cannot read {}", shown(file)));
}

Bytes contentOf(const std::filesystem::path& file, std::size_t limit) {
    Bytes content;
    forEachPiece(file, [&](ByteView piece) {
        if (content.size() + piece.size() > limit) {
            throw Failure(ExitCode::file, fmt::format("{} has more than the {} bytes that make "
                                                      "sense here",
                                                      shown(file), limit));
        }
        content.insert(content.end(), piece.begin(), piece.end());
    });
    return content;
}

void requireWritable(const std::filesystem::path& file) {
    std::error_code ignored;
    const auto status = std::filesystem::status(file, ignored);
    // A link to what is not there yet stays, whatever comes of the attempt.
    const bool exists = std::filesystem::exists(status) ||
                        std::filesystem::is_symlink(std::filesystem::symlink_status(file, ignored));
    // A pipe would take this for all that it gets.
    if (exists && !std::filesystem::is_regular_file(status) &&
        !std::filesystem::is_directory(status)) {
        return;
    }
    std::ofstream stream(file, std::ios::binary | std::ios::app);
    if (!stream) throw Failure(ExitCode::file, fmt::format("cannot write {}", shown(file)));
    stream.close();
    if (!exists) std::filesystem::remove(file, ignored);
}

void writeFile(const std::filesystem::path& file, ByteView content) {
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(content.data()),
                 static_cast<std::streamsize>(content.size()));
    stream.close();
    if (!stream) throw Failure(ExitCode::file, fmt::format("cannot write {}", shown(file)));
}

void writeFile(const std::filesystem::path& file, std::string_view content) {
    writeFile(file,
              ByteView(reinterpret_cast<const std::uint8_t*>(content.data()), content.size()));
}

void makeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder, error)) {
        throw Failure(ExitCode::file, fmt::format("cannot make the folder {}", shown(folder)));
    }
}

}  // namespace cardhost
