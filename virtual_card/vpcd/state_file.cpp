#include "state_file.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace virtual_card {

void StateFile::load(VirtualCard& card) {
    if (!path_ || !std::filesystem::exists(*path_)) return;
    std::ifstream file(*path_, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) throw std::runtime_error("cannot read the state file '" + path_->string() + "'");
    try {
        card.loadState(text.str());
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("state file '" + path_->string() + "': " + error.what());
    }
    written_ = text.str();
}

void StateFile::save(const VirtualCard& card) {
    if (!path_) return;
    std::string text = card.saveState();
    if (text == written_) return;
    std::filesystem::path fresh = *path_;
    fresh += ".new";
    {
        std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
        file << text;
        file.close();
        if (!file) throw std::runtime_error("cannot write '" + fresh.string() + "'");
    }
    std::error_code error;
    std::filesystem::rename(fresh, *path_, error);
    if (error) {
        throw std::runtime_error("cannot write the state file '" + path_->string() +
                                 "': " + error.message());
    }
    written_ = std::move(text);
}

}  // namespace virtual_card
