// What is gone through with a fault at every place: each entry point that does something, as one
// step of the platform's, and what a caller has of it afterwards.
#pragma once

#include <vector>

#include "fault_rules.h"
#include "platform_side.h"

namespace faults {

using boundary::Bytes;
using boundary::PlatformSide;

/// What the caller's record and buffers hold behind a call. The buffers are given back already.
struct Outcome {
    DWORD status = 0;
    Bytes given;
};

struct Journey {
    const char* entryPoint;
    const char* variant;
    bool (*fits)(const virtual_card::Generation& card);
    void (*prepare)(PlatformSide& card);
    Outcome (*act)(PlatformSide& card);
    /// The rule for its exchanges with the card; NULL where it has none, or none by itself.
    DWORD (*rule)(const boundary::Steps&, const boundary::Steps&) = nullptr;
    /// How many PINs it sends to the card.
    int pins = 0;
    /// Whether the outputs are others each time, and only their length tells something.
    bool isRandom = false;
};

extern const std::vector<Journey> journeys;

/// Hooks the companion application with its dialog, the registry's two settings and a directory
/// service into the platform's calls.
enum class Surroundings { bare, dialog, service };
void hookSurroundings(const Journey& journey);
Surroundings surroundingsOf(const Journey& journey);
/// The handles that the hooks have given out since, by kind.
struct GivenHandles {
    int libraries = 0;
    int http = 0;
    int certificates = 0;
    bool hasPrompted = false;
};
GivenHandles& givenHandles();
/// Begins the count of handles anew, and counts the certificates that the platform takes; those of
/// a hostile card it may refuse. The leak checker finds all of them: tests count what is given up.
void hookCertificates();

}  // namespace faults
