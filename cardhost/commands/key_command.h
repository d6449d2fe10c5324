// What sign, decrypt and agree have in common: their options, and the way from there to a key that
// is open for use.
#pragma once

#include <functional>
#include <string>

#include "containers.h"
#include "pins.h"
#include "session.h"

namespace cardhost {

struct KeyOptions {
    unsigned container = 0;
    std::string in;
    std::string out;
    bool withoutPin = false;
    PinOptions pin;
};

/// How a command names and describes these options.
struct KeyOptionTexts {
    const char* container;  // null where the command has no choice of container
    const char* inName;     // "--in"
    const char* in;
    const char* out;
};

void addKeyOptions(Command& command, KeyOptions& options, const KeyOptionTexts& texts);

/// One use of a key, in the order in which it goes.
struct KeyUse {
    /// Throws a Failure (usage) if the key does not fit; ahead of the PIN.
    std::function<void(const Container& container)> check;
    /// What the key makes of the input.
    std::function<Bytes(Acquisition& acquisition, const Container& container)> work;
    /// Tells it, once it is written to the file of --out.
    std::function<void(Report& report, const Container& container, const Bytes& made)> tell;
};

void useKey(const KeyOptions& options, const CommonOptions& common, std::FILE* stream,
            const KeyUse& use);

}  // namespace cardhost
