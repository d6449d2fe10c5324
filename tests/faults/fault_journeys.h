// What is gone through with a fault at every place: each entry point that does something, as one
// step of the platform's, and what a caller has of it afterwards.
#pragma once

#include <vector>

#include "fault_rules.h"
#include "platform_side.h"

namespace faults {

using boundary::Bytes;
using boundary::PlatformSide;
using boundary::Steps;

/// What the caller's record and buffers hold behind a call, as far as it has touched them: empty
/// where it has not. The buffers are given back already.
struct Outcome {
    DWORD status = 0;
    Bytes given;
    std::vector<boundary::Prompt> prompts;  ///< of the companion application's dialog
};

/// A run without a fault.
struct GoodRun {
    Outcome outcome;
    Steps steps;
};

struct EnteredPin {
    virtual_card::PinRole role;
    bool isRight;
};

struct Journey {
    const char* entryPoint;
    const char* variant;
    bool (*fits)(const virtual_card::Generation& card);
    void (*prepare)(PlatformSide& card);
    Outcome (*act)(PlatformSide& card);
    /// What a run has to end with, by what arrived from the card; NULL where nothing is asked of
    /// it.
    Outcome (*rule)(const PlatformSide& card, const GoodRun& good, const Steps& run) = nullptr;
    /// The PINs that are entered, in their order.
    std::vector<EnteredPin> pins = {};
    /// What shows only afterwards; called without faults.
    void (*look)(PlatformSide& card, Outcome& outcome) = nullptr;
    /// Whether what was given is true; called where the card has answered as it should.
    void (*confirm)(PlatformSide& card, const Bytes& given) = nullptr;
    /// How many bytes of what is given, an index or a length, are written ahead of the rest.
    std::size_t writtenAhead = 0;
    /// What an operation that is not offered ends with: it calls nothing and allocates nothing.
    DWORD refusal = 0;
};

/// The digits of an entered PIN.
std::string textOf(const PlatformSide& card, const EnteredPin& pin);

/// What an acquisition may leave empty.
struct Omitted {
    bool identity = false;
    int name = -1;  ///< of that container
    int size = -1;
};
/// What a successful acquisition gives: the files from memory, and whether keys can be agreed upon.
Bytes givenByAcquisition(const boundary::CardContent& content, const Omitted& omitted = {});

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
    std::vector<boundary::Prompt> prompts;
    /// The buffer for the PIN, and what stood in it as each prompt began.
    const char* pinBuffer = nullptr;
    std::vector<Bytes> foundInPinBuffer;
};
inline constexpr std::size_t pinBufferSize = 13;
GivenHandles& givenHandles();
/// Begins the count of handles anew, and counts the certificates that the platform takes; those of
/// a hostile card it may refuse. The leak checker finds all of them: tests count what is given up.
void hookCertificates();

}  // namespace faults
