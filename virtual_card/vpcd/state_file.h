// The file that keeps what a card keeps without power, between two runs of the program.
#pragma once

#include <filesystem>
#include <optional>

#include "virtual_card/virtual_card.h"

namespace virtual_card {

class StateFile {
public:
    /// No path: nothing is kept.
    explicit StateFile(std::optional<std::filesystem::path> path) : path_(std::move(path)) {}

    /// Gives the card its kept state; a file that does not exist yet leaves it new.
    /// @throws std::runtime_error that names the file when it is not such a state
    void load(VirtualCard& card);
    /// Writes the state if it changed, replacing the file as a whole.
    /// @throws std::runtime_error that names the file when it cannot be written
    void save(const VirtualCard& card);

private:
    std::optional<std::filesystem::path> path_;
    std::string written_;
};

}  // namespace virtual_card
