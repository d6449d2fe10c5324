#include "platform/fixed_paths.h"

// Fixed: not derived from the place where the companion application is installed.
const char* logFilePath() {
    return "C:\\Program Files\\Kelmora-ID-minidriver\\Log\\Kelmora-ID-minidriver.log";
}
