// Files of the user: reading and writing them whole. Every failure is a Failure (file) with the
// file's name in it.
#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

#include "bytes.h"

namespace cardhost {

/// The path as shown in messages.
std::string shown(const std::filesystem::path& path);

/// Hands the file's content over piece by piece.
void forEachPiece(const std::filesystem::path& file, const std::function<void(ByteView)>& use);

/// The whole content, if that is no more than `limit` bytes.
Bytes contentOf(const std::filesystem::path& file, std::size_t limit);

/// That a file can be written, before work that may not be done twice; its content stays, and none
/// is left where there was none.
void requireWritable(const std::filesystem::path& file);

void writeFile(const std::filesystem::path& file, ByteView content);
void writeFile(const std::filesystem::path& file, std::string_view content);

/// Makes the folder if it does not exist.
void makeFolder(const std::filesystem::path& folder);

}  // namespace cardhost
