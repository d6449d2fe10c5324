// Whether the journeys are all: each slot that the driver fills is gone through, and each call of
// the platform that is declared is made by one of them, or stands below with its reason.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "driver_memory.h"
#include "driver_slots.h"
#include "fault_journeys.h"
#include "support/platform_calls.h"

namespace faults {
namespace {

using KelmoraID::testing::onPlatformCall;
using KelmoraID::testing::platformCalls;

constexpr const char* declaredCalls[] = {
#include "platform_names.inc"
};

// What no good run of a journey calls.
const std::map<std::string, const char*> notCalled = {
    {"SCardReconnect", "comes behind a reset alone, and fails there in each way that it can"},
    {"SCardEstablishContext", "held ready: the platform hands over a context"},
    {"SCardReleaseContext", "held ready: the platform hands over a context"},
    {"SCardListReadersW", "held ready: the platform hands over a reader"},
    {"SCardConnectW", "held ready: the platform hands over a connection"},
    {"SCardDisconnect", "held ready: the platform hands over a connection"},
    {"SCardBeginTransaction", "held ready: the platform holds the card around each call"},
    {"SCardEndTransaction", "held ready: the platform holds the card around each call"},
    {"GetLastError", "cannot fail"},
    {"SetLastError", "cannot fail"},
};

// The slots that are not gone through on each card.
const std::map<std::string, const char*> notOnEachCard = {
    {"CardRSADecrypt", "without an RSA key it is the card that refuses, at the same commands"},
};

const SlotRow* slotAt(std::size_t offset) {
    const auto rows = driverSlots();
    const auto row = std::ranges::find(rows, offset, &SlotRow::offset);
    return row == rows.end() ? nullptr : &*row;
}

bool areGoneThrough(std::string_view entryPoint, const virtual_card::Generation& card) {
    return std::ranges::any_of(journeys, [&](const Journey& journey) {
        return journey.entryPoint == entryPoint && journey.fits(card);
    });
}

int timesEntered(std::string_view entryPoint) {
    for (const SlotRow& row : driverSlots()) {
        if (row.entryPoint == entryPoint) return row.timesEntered;
    }
    ADD_FAILURE() << "no slot of that name: " << entryPoint;
    return 0;
}

void goWell(const Journey& journey, int cardType) {
    PlatformSide card(cardType);
    hookCertificates();
    journey.prepare(card);
    hookSurroundings(journey);
    const bool isSlot = std::string_view(journey.entryPoint) != "CardAcquireContext";
    const int before = isSlot ? timesEntered(journey.entryPoint) : 0;
    journey.act(card);
    if (isSlot) {
        EXPECT_EQ(timesEntered(journey.entryPoint), before + 1)
            << journey.entryPoint << " " << journey.variant << " enters another slot";
    }
}

// The calls that leave the driver.
class Noted {
public:
    Noted() {
        names_.clear();
        crossing_ = onPlatformCall;
        onPlatformCall = [](const char* name) {
            if (name != nullptr && isInsideDriver()) {
                const OutsideDriver outside;
                names_.insert(name);
            }
            crossing_(name);
        };
    }
    ~Noted() {
        onPlatformCall = crossing_;
        platformCalls() = {};
    }
    Noted(const Noted&) = delete;
    Noted& operator=(const Noted&) = delete;

    static bool has(const std::string& name) { return names_.contains(name); }

private:
    static inline std::set<std::string> names_;
    static inline void (*crossing_)(const char* name) = nullptr;
};

TEST(Completeness, EachSlotThatTheDriverFillsIsGoneThrough) {
    std::set<std::string> excused;
    for (const auto& generation : virtual_card::generations()) {
        SCOPED_TRACE("card " + std::to_string(generation.cardType));
        const Noted noted;
        PlatformSide card(generation.cardType);
        hookCertificates();
        const CARD_DATA before = card.data;
        card.acquireOrFail();
        for (std::size_t at = offsetof(CARD_DATA, pfnCardDeleteContext); at < sizeof(CARD_DATA);
             at += sizeof(void*)) {
            const auto* now = reinterpret_cast<const std::uint8_t*>(&card.data) + at;
            const auto* then = reinterpret_cast<const std::uint8_t*>(&before) + at;
            if (std::memcmp(now, then, sizeof(void*)) == 0) continue;
            const SlotRow* slot = slotAt(at);
            ASSERT_NE(slot, nullptr) << "no row in driverSlots for the slot at byte " << at;
            if (areGoneThrough(slot->entryPoint, generation)) continue;
            EXPECT_TRUE(notOnEachCard.contains(slot->entryPoint))
                << slot->entryPoint << " has no journey";
            excused.insert(slot->entryPoint);
        }
    }
    EXPECT_EQ(excused.size(), notOnEachCard.size()) << "an excuse that nothing needs";
    for (const SlotRow& row : driverSlots()) {
        EXPECT_TRUE(std::ranges::any_of(
            virtual_card::generations(),
            [&](const auto& card) { return areGoneThrough(row.entryPoint, card); }))
            << row.entryPoint << " has no journey";
    }
}

TEST(Completeness, EachDeclaredCallOfThePlatformIsMadeOrHasItsReason) {
    const Noted noted;
    for (const Journey& journey : journeys) {
        // The first that fits has RSA keys and the last EC keys, where both do.
        std::vector<int> fitting;
        for (const auto& card : virtual_card::generations()) {
            if (journey.fits(card)) fitting.push_back(card.cardType);
        }
        ASSERT_FALSE(fitting.empty()) << journey.entryPoint << " " << journey.variant;
        goWell(journey, fitting.front());
        if (fitting.size() > 1) goWell(journey, fitting.back());
        platformCalls() = {};
    }
    for (const std::string name : declaredCalls) {
        EXPECT_NE(Noted::has(name), notCalled.contains(name))
            << name << (Noted::has(name) ? " is called all the same" : " has no journey");
    }
    for (const auto& [name, reason] : notCalled) {
        EXPECT_NE(std::ranges::find(declaredCalls, name), std::end(declaredCalls))
            << name << " is no call any more";
    }
}

}  // namespace
}  // namespace faults
