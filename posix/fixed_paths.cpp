#include "platform/fixed_paths.h"

const char* logFilePath() {
    return "/var/log/kelmora-id-minidriver/kelmora-id-minidriver.log";
}

const char* settingsFilePath() {
    return "/etc/kelmora-id-minidriver/settings.ini";
}
