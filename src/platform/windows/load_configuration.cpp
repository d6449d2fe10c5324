#include "platform/win32.h"

// The linker fills in what it was told (that imports are looked for in System32 only) where it
// finds this record, by this name.
#ifdef _WIN64
using LoadConfiguration = IMAGE_LOAD_CONFIG_DIRECTORY64;
#else
using LoadConfiguration = IMAGE_LOAD_CONFIG_DIRECTORY32;
#endif

extern "C" {
extern const LoadConfiguration _load_config_used;
constinit const LoadConfiguration _load_config_used = [] {
    LoadConfiguration configuration{};
    configuration.Size = sizeof(configuration);
    return configuration;
}();
}
