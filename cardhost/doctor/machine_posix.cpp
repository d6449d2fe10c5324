#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "doctor/real_machine.h"
#include "exit_codes.h"
#include "os.h"

namespace cardhost::doctor {

namespace {

/// No registry and no services: what asks for them runs on Windows only.
class PosixMachine : public RealMachine {
public:
    using RealMachine::RealMachine;

    bool isWindows() const override { return false; }
    Architecture architecture() const override { return Architecture::unknown; }

    std::optional<std::vector<std::string>> subkeys(View, const std::string&) override {
        return std::nullopt;
    }
    std::optional<RegistryValue> value(View, const std::string&, const std::string&) override {
        return std::nullopt;
    }
    std::string systemFolder(View) const override { return {}; }
    Service service(const std::string&) override { return {}; }
    AddressAnswer ask(bool, const std::string&, std::uint16_t) override { return {}; }

    FileFacts file(const std::string& path) override {
        FileFacts facts;
        facts.exists = access(path.c_str(), F_OK) == 0;
        if (!facts.exists) return facts;
        try {
            os::Library(path).get<void*>("CardAcquireContext");
        } catch (const Failure& failure) {
            facts.unreadable = failure.what();
        }
        return facts;
    }

    LogPlace log() override {
        LogPlace place;
        place.folder = "/var/log/kelmora-id-minidriver";
        place.file = place.folder + "/kelmora-id-minidriver.log";
        std::error_code error;
        place.folderExists = std::filesystem::is_directory(place.folder, error);
        place.fileExists = std::filesystem::is_regular_file(place.file, error);
        if (place.fileExists) place.size = std::filesystem::file_size(place.file, error);
        const bool isThere = std::filesystem::exists(place.file, error);
        place.isWritable = access((isThere ? place.file : place.folder).c_str(), W_OK) == 0;
        if (!place.isWritable) place.reason = std::strerror(errno);
        if (isThere && !place.fileExists) {
            place.isWritable = false;
            place.reason = "it is no file";
        }
        return place;
    }
};

}  // namespace

std::unique_ptr<Machine> realMachine(const CommonOptions& options) {
    return std::make_unique<PosixMachine>(options);
}

}  // namespace cardhost::doctor
