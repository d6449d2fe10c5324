// A PIN dialog library as the companion application brings one: the same one function, answering
// from a script instead of a person, and remembering what it was shown.
#include "code_entry_script.h"

#include <cstring>

#if defined(_WIN32)
#define EXPORTED extern "C" __declspec(dllexport)
#else
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

namespace {

// Each thread has a person of its own in front.
thread_local CodeEntryScript script;

}  // namespace

EXPORTED CodeEntryScript* codeEntryScript() {
    return &script;
}

EXPORTED std::int32_t promptCodeEntryDefault(std::int32_t kind, std::int32_t second,
                                             std::int32_t third, std::int32_t reason,
                                             const char* title, const char* text,
                                             std::int32_t attempts, std::int32_t eighth,
                                             char* pin) {
    const int call = script.calls++;
    if (call >= CodeEntryScript::most) return 1;
    CodeEntryShown& shown = script.shown[call];
    shown = {kind, second, third, reason, attempts, eighth, title != nullptr, {}, {}};
    std::strncpy(shown.text, text != nullptr ? text : "", sizeof(shown.text) - 1);
    std::memcpy(shown.buffer, pin, sizeof(shown.buffer));
    if (script.pins[call] == nullptr) return 1;
    std::strncpy(pin, script.pins[call], 13);
    return 0;
}
