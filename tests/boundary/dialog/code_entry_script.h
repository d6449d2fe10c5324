// What the scripted dialog library is told and what it remembers.
#pragma once

#include <cstdint>

struct CodeEntryShown {
    std::int32_t kind, second, third, reason, attempts, eighth;
    bool hasTitle;
    char text[64];
    char buffer[13];  ///< the caller's buffer as it came
};

struct CodeEntryScript {
    static constexpr int most = 8;
    const char* pins[most];  ///< what is typed at each call; null cancels
    CodeEntryShown shown[most];
    int calls;
};
