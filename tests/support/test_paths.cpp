// The fixed paths of the test programs: a folder of this process, removed when it ends.
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/fixed_paths.h"
#include "support/log_capture.h"

namespace KelmoraID::testing {
namespace {

struct Folder {
    std::string path;
    std::string log;
    std::string settings;
    Folder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kelmora-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path = pattern;
        log = path + "/Log/minidriver.log";
        settings = path + "/settings.ini";
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
};

const Folder& folder() {
    static const Folder folder;
    return folder;
}

}  // namespace

const std::string& testFolder() {
    return folder().path;
}

}  // namespace KelmoraID::testing

const char* logFilePath() {
    return KelmoraID::testing::folder().log.c_str();
}

const char* settingsFilePath() {
    return KelmoraID::testing::folder().settings.c_str();
}
