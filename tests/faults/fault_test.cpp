// Every fault at every place: each entry point, on each card, does once what it does well; then it
// is done again for each call that it made, and each way in which that call can fail. Each run has
// the status that the rules give, its outputs are whole or not there, nothing stays behind but what
// is given up (tests/support/thrown_pointers.h), and no PIN goes out more often than it was
// entered.
//
// By default a sample that KELMORA_FAULTS=SEED[:ONE_IN] draws, and of each kind of place one run at
// least of each journey with each card; KELMORA_FAULTS=all runs them all.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "driver_memory.h"
#include "driver_slots.h"
#include "fault_journeys.h"
#include "fault_outcomes.h"
#include "platform/fixed_paths.h"
#include "secret_search.h"
#include "support/platform_calls.h"
#include "support/statuses.h"
#include "support/thrown_pointers.h"

namespace faults {
namespace {

using KelmoraID::testing::platformCalls;
using virtual_card::Exchange;
using virtual_card::Fault;
using virtual_card::PinRole;

// --- What is planted, to see that it is found: KELMORA_PLANTED=rule|verify|output|
// secret|leak|pointer

bool isPlanted(const char* what) {
    static const char* planted = std::getenv("KELMORA_PLANTED");
    return planted != nullptr && std::string(planted) == what;
}

// --- Which runs

struct Choice {
    bool all = false;
    unsigned long seed = 1;
    unsigned long oneIn = 400;
};
const Choice& choice() {
    static const Choice choice = [] {
        Choice made;
        const char* text = std::getenv("KELMORA_FAULTS");
        if (text == nullptr) return made;
        made.all = std::string(text) == "all";
        char* rest = nullptr;
        made.seed = std::strtoul(text, &rest, 10);
        if (*rest == ':') made.oneIn = std::max(1UL, std::strtoul(rest + 1, nullptr, 10));
        return made;
    }();
    return choice;
}
// A number below that one.
unsigned long draw(unsigned long below) {
    static unsigned long long state = choice().seed;
    // Knuth's generator (MMIX): the same runs for the same seed.
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<unsigned long>((state >> 33) % below);
}

enum class Kind { exchange, platformCall, callersMemory, memory };
constexpr const char* kindNames[] = {"exchange", "platform", "pfnCspAlloc", "operator new"};
std::map<std::string, std::array<long, 4>>& tally() {
    static std::map<std::string, std::array<long, 4>> runs;
    return runs;
}

class Report : public ::testing::Environment {
public:
    void TearDown() override {
        std::array<long, 4> sums{};
        std::printf("\n%-26s%12s%12s%14s%14s%10s\n", "Runs with a fault at", kindNames[0],
                    kindNames[1], kindNames[2], kindNames[3], "all");
        const auto line = [](const char* name, const std::array<long, 4>& runs) {
            std::printf("%-26s%12ld%12ld%14ld%14ld%10ld\n", name, runs[0], runs[1], runs[2],
                        runs[3], runs[0] + runs[1] + runs[2] + runs[3]);
        };
        for (const auto& [name, runs] : tally()) {
            line(name.c_str(), runs);
            for (std::size_t at = 0; at < sums.size(); ++at) sums[at] += runs[at];
        }
        line("all", sums);
    }
};
[[maybe_unused]] const auto* const report = ::testing::AddGlobalTestEnvironment(new Report);

// --- The driver's calls

Calls calls;
int depth = 0;
bool wasInside[16];

void crossing(const char* name) {
    if (name == nullptr) {
        setInsideDriver(wasInside[--depth]);
        return;
    }
    wasInside[depth++] = isInsideDriver();
    setInsideDriver(false);
    const std::string_view called = name;
    if (wasInside[depth - 1] && called != "GetLastError" && called != "SetLastError") {
        calls.push_back({name, driverAllocations()});
    }
}

PFN_CSP_ALLOC platformsAlloc = nullptr;
LPVOID WINAPI notedAlloc(SIZE_T size) {
    const OutsideDriver outside;
    calls.push_back({"pfnCspAlloc", driverAllocations()});
    return platformsAlloc(size);
}

// Errors that are thrown as pointers: freed here, since nobody else does, and counted.
std::runtime_error* thrown[64];
int thrownCount = 0;
int freeThrown() {
    const int count = thrownCount;
    while (thrownCount > 0) delete thrown[--thrownCount];
    return count;
}

// --- One run

enum class Repeated { once, twice, forEver, reconnectFails };

struct Planned {
    Kind kind = Kind::exchange;
    std::size_t n = 0;  // from 1; 0 for a good run
    Fault fault{};
    Repeated repeated = Repeated::once;
    DWORD code = 0;
};

struct Done {
    Outcome outcome;
    std::vector<Exchange> exchanges;
    Calls calls;
    long allocations = 0;
    std::map<std::string, int> counts;
    GivenHandles handles;
    int errorsAsPointers = 0;
    std::map<PinRole, unsigned> triesLost;
    std::string log;  // where PINs are entered
};

constexpr std::size_t longerThanAnyChain = 100;

void plan(PlatformSide& card, const Planned& planned) {
    switch (planned.kind) {
        case Kind::exchange: {
            std::size_t last = planned.n;
            if (planned.repeated == Repeated::twice) last = planned.n + 1;
            if (planned.repeated == Repeated::forEver) last = planned.n + longerThanAnyChain;
            for (std::size_t n = planned.n; n != 0 && n <= last; ++n) {
                card.reader.failTransmit(n, planned.fault);
            }
            if (planned.repeated == Repeated::reconnectFails) {
                card.reader.failReconnect(planned.code);
            }
            break;
        }
        case Kind::platformCall:
            platformCalls().failNth(static_cast<int>(planned.n), planned.code);
            break;
        case Kind::callersMemory:
            PlatformSide::failAllocation(static_cast<int>(planned.n));
            break;
        case Kind::memory:
            break;
    }
    failDriverAllocation(planned.kind == Kind::memory ? static_cast<long>(planned.n) : 0);
}

int timesIn(const std::string& log, std::string_view line) {
    int times = 0;
    for (std::size_t at = log.find(line); at != log.npos; at = log.find(line, at + 1)) ++times;
    return times;
}

// Whether a PIN that was entered could not be tried. Which allocation belongs to a try is told by
// its line in the log alone.
bool brokeOff(const Done& run, const Planned& planned) {
    if (planned.kind == Kind::memory) return timesIn(run.log, "] Failed to verify PIN. Abort") == 1;
    return run.outcome.status == status::unexpected;
}

// What was opened has been closed; of the failed call nothing was.
void expectClosed(const Journey& journey, const Done& run, const Planned& planned,
                  const std::string& failedCall, bool keepsSecondCertificate) {
    const auto count = [&](const char* name) {
        const auto found = run.counts.find(name);
        return found == run.counts.end() ? 0 : found->second;
    };
    const auto opened = [&](const char* name) {
        return count(name) - (failedCall == name ? 1 : 0);
    };
    EXPECT_EQ(opened("CryptAcquireContextW"), count("CryptReleaseContext"));
    EXPECT_EQ(opened("CryptCreateHash"), count("CryptDestroyHash"));
    EXPECT_EQ(opened("BCryptOpenAlgorithmProvider"), count("BCryptCloseAlgorithmProvider"));
    EXPECT_EQ(opened("BCryptCreateHash"), count("BCryptDestroyHash"));
    EXPECT_EQ(run.handles.http, count("WinHttpCloseHandle"));
    EXPECT_EQ(run.handles.certificates - count("CertFreeCertificateContext"),
              keepsSecondCertificate ? 1 : 0);
    // The dialog's library stays loaded where a PIN that it gave could not be tried.
    const bool staysLoaded = !run.handles.prompts.empty() && brokeOff(run, planned);
    EXPECT_EQ(run.handles.libraries - count("FreeLibrary"), staysLoaded ? 1 : 0)
        << "of the dialog's library, " << journey.variant;
}

bool hasPin(const Exchange& exchange) {
    return exchange.command.at(1) == 0x20 && exchange.command.size() > 5;
}

// How many PINs went out. The same command once more, to a card that was reset and has come back,
// is no second one.
int pinsSent(const Done& run, bool comesBack) {
    int sent = 0;
    bool mayRepeat = false;
    for (std::size_t at = 0; at < run.exchanges.size(); ++at) {
        const Exchange& exchange = run.exchanges[at];
        const bool repeats = mayRepeat && exchange.command == run.exchanges[at - 1].command;
        if (hasPin(exchange) && !repeats) ++sent;
        mayRepeat = comesBack && !repeats && exchange.code == status::resetCard;
    }
    return sent;
}

// Standard output has the driver's lines; they go to a file meanwhile.
class Silence {
public:
    Silence() : kept_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int file = open(path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDOUT_FILENO);
        close(file);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

    static std::string text() {
        std::fflush(stdout);
        std::ifstream stream(path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    static const std::string& path() {
        static const std::string path = KelmoraID::testing::testFolder() + "/output";
        return path;
    }
    int kept_;
};

// Both channels of the log since a place in each, without the time stamps: digits of a PIN stand in
// those too.
class LogFromHere {
public:
    LogFromHere() : output_(Silence::text().size()) {
        std::ofstream(logFilePath(), std::ios::trunc);
    }
    std::string text() const {
        return withoutStamps(Silence::text().substr(output_)) +
               withoutStamps(KelmoraID::testing::logFileContent());
    }

private:
    static std::string withoutStamps(const std::string& log) {
        std::string text;
        std::istringstream stream(log);
        for (std::string line; std::getline(stream, line);) {
            const bool isStamped = line.starts_with("[20");
            text += (isStamped ? line.substr(line.find(']') + 1) : line) + "\n";
        }
        return text;
    }
    std::size_t output_;
};

Done go(const Journey& journey, int cardType, const Planned& planned,
        const std::string& failedCall) {
    Done run;
    platformCalls() = {};
    forgetHeld();
    freeThrown();
    bool keepsSecondCertificate = false;
    bool struck = true;
    {
        const Silence silence;
        PlatformSide card(cardType);
        platformsAlloc = card.data.pfnCspAlloc;
        card.data.pfnCspAlloc = notedAlloc;
        card.reader.onCommand = [](virtual_card::ByteView command) {
            char ins[4];
            std::snprintf(ins, sizeof(ins), " %02X", command[1]);
            if (!calls.empty()) calls.back().name += ins;
        };
        hookCertificates();
        journey.prepare(card);
        hookSurroundings(journey);
        const bool isAcquired = card.acquired;
        auto& platform = platformCalls();
        platform.counts.clear();
        platform.order.clear();
        calls.clear();
        card.reader.clearExchanges();
        constexpr PinRole roles[] = {PinRole::Authentication, PinRole::Signature, PinRole::Unblock};
        std::map<PinRole, unsigned> tries;
        for (const PinRole role : roles) tries[role] = card.reader.card().triesLeft(role);
        const LogFromHere log;
        freeThrown();
        plan(card, planned);
        run.outcome = journey.act(card);
        run.errorsAsPointers = freeThrown();
        for (const PinRole role : roles) {
            run.triesLost[role] = tries[role] - card.reader.card().triesLeft(role);
        }
        run.allocations = driverAllocations();
        run.calls = calls;
        run.exchanges = card.reader.exchanges();
        if (planned.kind == Kind::memory) struck = driverAllocationFailed();
        if (planned.kind == Kind::platformCall) struck = platform.failed;
        failDriverAllocation(0);
        platform.failNth(0);
        PlatformSide::failAllocation(0);
        card.reader.clearFaults();

        if (isPlanted("secret") && planned.n == 1)
            std::printf("%s", textOf(card, journey.pins[0]).c_str());
        if (!journey.pins.empty()) run.log = log.text();
        if (journey.look != nullptr) journey.look(card, run.outcome);
        const bool isTrue = planned.kind != Kind::exchange || planned.n == 0;
        if (journey.confirm != nullptr && isTrue && !run.outcome.given.empty()) {
            journey.confirm(card, run.outcome.given);
        }
        const bool isThird = card.containers() > 2;
        if (!isAcquired && !card.acquired && card.data.pvVendorSpecific != nullptr) {
            // A context that was half filled stays in the record, and the table is not filled.
            deleteHalfFilled(card.data);
        }
        // The certificate of a second signing key is given up wherever it was made.
        keepsSecondCertificate = isThird && givenHandles().certificates == 3;
    }
    EXPECT_TRUE(struck || planned.n == 0) << "the fault did not come to pass";
    freeThrown();
    if (isPlanted("leak") && planned.n == 2) {
        const InsideDriver inside;
        static std::vector<std::unique_ptr<int>> leaked;
        leaked.push_back(std::make_unique<int>(1));
    }
    EXPECT_EQ(heldByDriver().blocks, 0u) << heldByDriver().bytes << " bytes stay behind";
    run.counts = platformCalls().counts;
    run.handles = givenHandles();
    expectClosed(journey, run, planned, failedCall, keepsSecondCertificate);
    platformCalls() = {};
    return run;
}

// --- All runs of a journey

using ByteList = std::vector<std::uint32_t>;

std::vector<Planned> faultsOfAnExchange() {
    std::vector<Planned> list;
    const auto add = [&](Fault::Kind kind, const ByteList& values,
                         Repeated repeated = Repeated::once) {
        for (const std::uint32_t value : values) {
            list.push_back({Kind::exchange, 0, {kind, value}, repeated, 0});
        }
    };
    using Way = Fault::Kind;
    add(Way::TransportError, {status::removedCard, status::resetCard, status::noService,
                              status::sharingViolation, status::lostData, status::readerUnavailable,
                              status::unresponsiveCard, status::invalidHandle});
    add(Way::LostReply, {status::notTransacted, status::removedCard, status::resetCard});
    add(Way::CutReply, {0, 1, 2, 3});
    add(Way::StatusWord,
        {0x6982, 0x6A82, 0x6A86, 0x6100, 0x6110, 0x6C10, 0x9000, 0x6282, 0x63C0, 0x63C2, 0x6300,
         0x6700, 0x6983, 0x6984, 0x6985, 0x6986, 0x6A88, 0x6D00, 0x6F00, 0x0000, 0xFFFF});
    add(Way::StatusWord, {0x6101, 0x6100}, Repeated::forEver);
    add(Way::ResetCard, {0});
    add(Way::ResetCard, {0}, Repeated::twice);
    for (const DWORD code : codesOf("SCardReconnect")) {
        list.push_back({Kind::exchange, 0, {Way::ResetCard, 0}, Repeated::reconnectFails, code});
    }
    add(Way::RemoveCard, {0});
    add(Way::ClaimedLength, {0, 1, 2, 259, 510, 513, 0xFFFFFFFF});
    add(Way::WrongData, {0x00, 0xFF});
    add(Way::LongData, {0x00, 0xFF});
    return list;
}

struct FaultyRun {
    Planned planned;
    std::string what;
    std::string failedCall = {};
    Expected expected{status::success, Gives::asGood};
    bool marksProcess = false;
};

class EveryFault : public ::testing::TestWithParam<std::tuple<std::size_t, int>> {
protected:
    const Journey& journey() const { return journeys[std::get<0>(GetParam())]; }
    int cardType() const { return std::get<1>(GetParam()); }

    // One run with a fault, held against what the rules say. For exchanges the journey has one;
    // with anything else a run that goes on is held against it too.
    void check(const Planned& planned, const std::string& failedCall,
               const Expected& expected = {status::success, Gives::asGood}) {
        ++tally()[journey().entryPoint][static_cast<std::size_t>(planned.kind)];
        Done run = go(journey(), cardType(), planned, failedCall);
        if (isPlanted("output") && planned.n == 1) run.outcome.given.push_back(0);
        if (isPlanted("pointer") && planned.n == 1) ++run.errorsAsPointers;
        Outcome wanted{expected.status, expected.otherwise, {}};
        if (expected.status == status::success) wanted.status = good_.outcome.status;
        const Steps steps = stepsOf(run, planned);
        const bool goesOn = expected.mayGoOn && run.outcome.status == good_.outcome.status;
        if (goesOn) {
            wanted = good_.outcome;
        } else if (expected.gives == Gives::asGood) {
            wanted =
                journey().rule == nullptr ? good_.outcome : journey().rule(*card_, good_, steps);
        }
        if (expected.gives == Gives::ahead) wanted.given = writtenAhead();
        if (isPlanted("rule") && planned.n == 1) wanted.status = 0xBAD;
        EXPECT_EQ(run.outcome.status, wanted.status)
            << std::hex << "ended with " << run.outcome.status << ", the rules say "
            << wanted.status;
        const bool isMemory = planned.kind == Kind::memory;
        if (isMemory && run.outcome.status != good_.outcome.status) {
            expectWholeOrNone(run.outcome);
        } else {
            EXPECT_EQ(run.outcome.given, wanted.given) << "other outputs than the rules say";
            const bool isHeldAgainst = !isMemory && expected.gives == Gives::asGood;
            EXPECT_TRUE(isHeldAgainst ? run.outcome.prompts == wanted.prompts
                                      : beginsAsGood(run.outcome))
                << "other prompts";
        }
        expectTriesKept(run, planned);
        expectPinsKept(run);
        expectErrorsAsPointers(run, planned, steps);
    }

    static bool comesBack(const Planned& planned) {
        return planned.repeated != Repeated::reconnectFails;
    }
    static Steps stepsOf(const Done& run, const Planned& planned) {
        const std::size_t struck = planned.kind == Kind::exchange ? planned.n : 0;
        return boundary::stepsOf(run.exchanges, struck, planned.fault, comesBack(planned));
    }

    // As many as what arrived makes. Where memory ran out it is one if limits were being asked for,
    // which the log tells.
    static void expectErrorsAsPointers(const Done& run, const Planned& planned,
                                       const Steps& steps) {
        const int expected = planned.kind == Kind::memory
                                 ? timesIn(run.log, "] Pin length validation failed with")
                                 : boundary::errorsAsPointers(steps);
        EXPECT_EQ(run.errorsAsPointers, expected) << "errors thrown as pointers, and given up";
    }

    // No PIN is in a log, nor in what the caller gets.
    void expectPinsKept(const Done& run) const {
        for (const EnteredPin& pin : journey().pins) {
            const Bytes digits = bytesOf(textOf(*card_, pin));
            expectNotIn(run.log, digits);
            EXPECT_FALSE(holds(run.outcome.given, digits));
        }
    }

    // A line of the log that finds no memory comes behind the outputs.
    void expectWholeOrNone(const Outcome& outcome) const {
        const Bytes& given = outcome.given;
        const Bytes& whole = good_.outcome.given;
        const bool isWhole =
            journey().confirm == nullptr ? given == whole : given.size() == whole.size();
        EXPECT_TRUE(given.empty() || isWhole || given == writtenAhead()) << "outputs in part";
        EXPECT_TRUE(beginsAsGood(outcome)) << "other prompts";
    }
    Bytes writtenAhead() const {
        const auto first = good_.outcome.given.begin();
        return {first, first + static_cast<std::ptrdiff_t>(journey().writtenAhead)};
    }
    bool beginsAsGood(const Outcome& outcome) const {
        const auto& all = good_.outcome.prompts;
        return outcome.prompts.size() <= all.size() &&
               std::equal(outcome.prompts.begin(), outcome.prompts.end(), all.begin());
    }

    // Where both PINs have one reference, a card that stands in its root holds the signature PIN
    // against the other one: it gets the VERIFY once more behind a reset, or has told of a
    // selection that it did not carry out.
    bool meetsTheOtherPin(const Planned& planned) const {
        const auto& rows = virtual_card::findGeneration(cardType())->pins;
        const auto& pins = journey().pins;
        if (rows[0].reference != rows[1].reference || pins.empty()) return false;
        const Fault& fault = planned.fault;
        const bool isElsewhere =
            fault.kind == Fault::Kind::ResetCard ||
            (fault.kind == Fault::Kind::LostReply && fault.value == status::resetCard) ||
            (fault.kind == Fault::Kind::StatusWord && fault.value == 0x9000);
        return isElsewhere && pins.front().role == PinRole::Signature;
    }

    // A PIN goes out once for each time it is entered, and only a wrong one costs a try.
    void expectTriesKept(const Done& run, const Planned& planned) const {
        const auto& pins = journey().pins;
        const auto entered =
            isPlanted("verify")
                ? 0
                : static_cast<int>(run.handles.prompts.empty()
                                       ? pins.size()
                                       : std::min(pins.size(), run.handles.prompts.size()));
        EXPECT_LE(pinsSent(run, comesBack(planned)), entered) << "a PIN went out too often";
        for (const auto& [role, lost] : run.triesLost) {
            const auto isWrong = [role = role](const EnteredPin& pin) {
                return pin.role == role && !pin.isRight;
            };
            auto allowed = static_cast<unsigned>(std::ranges::count_if(pins, isWrong));
            // A card that is reset behind a command gets it once more, and counts once more.
            const bool isCarriedOutTwice = planned.fault.kind == Fault::Kind::LostReply &&
                                           planned.fault.value == status::resetCard;
            if (isCarriedOutTwice) allowed *= 2;
            if (role == PinRole::Authentication && meetsTheOtherPin(planned)) ++allowed;
            EXPECT_LE(lost, allowed) << "tries of PIN " << static_cast<int>(role) << " are lost";
        }
    }

    DWORD goodStatus() const {
        if (journey().refusal != 0) return journey().refusal;
        const auto& pins = journey().pins;
        return pins.empty() || pins.back().isRight ? status::success : status::wrongPin;
    }

    // --- The runs by kind of place

    static std::vector<FaultyRun> runsAtExchanges(const Done& good) {
        std::vector<FaultyRun> runs;
        for (std::size_t n = 1; n <= good.exchanges.size(); ++n) {
            for (Planned planned : faultsOfAnExchange()) {
                planned.n = n;
                std::ostringstream what;
                what << "exchange " << n << ", fault " << int(planned.fault.kind) << " of 0x"
                     << std::hex << planned.fault.value << ", repeated " << int(planned.repeated)
                     << ", 0x" << planned.code;
                runs.push_back({planned, what.str()});
            }
        }
        return runs;
    }

    std::vector<FaultyRun> runsAtCalls(const Done& good) const {
        std::vector<FaultyRun> runs;
        std::size_t number = 0;
        for (std::size_t at = 0; at < good.calls.size(); ++at) {
            const std::string& name = good.calls[at].name;
            if (name == "pfnCspAlloc") continue;
            ++number;
            if (name.starts_with("SCardTransmit")) continue;  // by exchanges
            for (const DWORD code : codesOf(name)) {
                std::ostringstream what;
                what << name << ", call " << number << ", 0x" << std::hex << code;
                runs.push_back({{Kind::platformCall, number, {}, Repeated::once, code},
                                what.str(),
                                name,
                                afterPlatformCall(journey(), *card_, good_, good.calls, at, code)});
            }
        }
        return runs;
    }

    std::vector<FaultyRun> runsAtCallersAllocations(const Done& good) const {
        std::vector<FaultyRun> runs;
        for (std::size_t at = 0; at < good.calls.size(); ++at) {
            const std::string& name = good.calls[at].name;
            if (name != "pfnCspAlloc") continue;
            const std::size_t number = runs.size() + 1;
            runs.push_back({{Kind::callersMemory, number},
                            name + " " + std::to_string(number),
                            name,
                            afterCallersAllocation(journey(), good_, good.calls, at)});
        }
        return runs;
    }

    std::vector<FaultyRun> runsAtAllocations(const Done& good) const {
        // From here on an exception marks the process: it pairs no card any more.
        const auto pairing = std::ranges::find(good.calls, "CryptBinaryToStringA", &Call::name);
        const bool pairs = pairing != good.calls.end();
        std::vector<FaultyRun> runs;
        for (long n = 1; n <= good.allocations; ++n) {
            runs.push_back({{Kind::memory, static_cast<std::size_t>(n)},
                            "operator new " + std::to_string(n),
                            "",
                            afterAllocation(journey(), good_, good.calls, n),
                            pairs && n > pairing->allocationsBefore});
        }
        return runs;
    }

    // The runs of a kind that the choice takes.
    void carryOut(const std::vector<FaultyRun>& runs) {
        if (runs.empty()) return;
        const std::size_t drawn = draw(runs.size());
        for (std::size_t at = 0; at < runs.size() && !HasFailure(); ++at) {
            const bool isDrawn = draw(choice().oneIn) == 0 || at == drawn;
            if (!choice().all && !isDrawn) continue;
            const FaultyRun& run = runs[at];
            SCOPED_TRACE(run.what);
            if (run.marksProcess) {
                inProcessOfItsOwn(run.planned, run.expected);
            } else {
                check(run.planned, run.failedCall, run.expected);
            }
        }
    }

    void inProcessOfItsOwn(const Planned& planned, const Expected& expected) {
        ++tally()[journey().entryPoint][static_cast<std::size_t>(planned.kind)];
        std::fflush(stdout);
        std::fflush(stderr);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            check(planned, "", expected);
            std::fflush(stderr);
            _exit(HasFailure() ? 1 : 0);
        }
        int ended = 0;
        waitpid(child, &ended, 0);
        EXPECT_TRUE(WIFEXITED(ended) && WEXITSTATUS(ended) == 0);
    }

    std::unique_ptr<PlatformSide> card_;  // of the same kind as the one that the journey has
    GoodRun good_;
};

TEST_P(EveryFault, EndsAsTheRulesSay) {
    const Done good = go(journey(), cardType(), {}, "");
    card_ = std::make_unique<PlatformSide>(cardType());
    good_ = {good.outcome, boundary::stepsOf(good.exchanges)};
    ASSERT_EQ(good_.outcome.status, goodStatus());
    expectTriesKept(good, {});
    expectPinsKept(good);
    EXPECT_EQ(good.errorsAsPointers, 0);
    if (journey().refusal != 0) {
        EXPECT_TRUE(good.calls.empty()) << "a refused operation calls " << good.calls.front().name;
        EXPECT_EQ(good.allocations, 0) << "of a refused operation";
        EXPECT_TRUE(good.outcome.given.empty()) << "a refused operation changes the record";
    }
    if (HasFailure()) return;
    if (journey().refusal == 0) tally()[journey().entryPoint];

    ASSERT_EQ(journey().rule == nullptr, good.exchanges.empty()) << "exchanges need a rule";
    if (journey().rule != nullptr) {
        const Outcome ruled = journey().rule(*card_, good_, good_.steps);
        ASSERT_EQ(good_.outcome.status, ruled.status);
        ASSERT_EQ(good_.outcome.given, ruled.given);
        ASSERT_EQ(good_.outcome.prompts, ruled.prompts);
        carryOut(runsAtExchanges(good));
    }
    carryOut(runsAtCalls(good));
    carryOut(runsAtCallersAllocations(good));
    carryOut(runsAtAllocations(good));
}

// Each journey with each card that it fits.
std::vector<EveryFault::ParamType> journeysOfCards() {
    std::vector<EveryFault::ParamType> fitting;
    for (std::size_t at = 0; at < journeys.size(); ++at) {
        for (const auto& card : virtual_card::generations()) {
            if (journeys[at].fits(card)) fitting.emplace_back(at, card.cardType);
        }
    }
    return fitting;
}

std::string nameOf(const ::testing::TestParamInfo<EveryFault::ParamType>& info) {
    const Journey& journey = journeys[std::get<0>(info.param)];
    std::string name = std::string(journey.entryPoint) + "_" + journey.variant;
    std::erase_if(name, [](char c) { return c == ' ' || c == ','; });
    std::replace(name.begin(), name.end(), '.', '_');
    return name + "_card" + std::to_string(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Journeys, EveryFault, ::testing::ValuesIn(journeysOfCards()), nameOf);

[[maybe_unused]] const bool isReady = [] {
    // The driver writes to the file where its folder is.
    std::filesystem::create_directories(std::filesystem::path(logFilePath()).parent_path());
    KelmoraID::testing::onPlatformCall = crossing;
    KelmoraID::testing::onThrownPointer = [](void* error) {
        if (thrownCount < 64) thrown[thrownCount++] = static_cast<std::runtime_error*>(error);
    };
    return true;
}();

}  // namespace
}  // namespace faults
