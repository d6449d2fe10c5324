// Every fault at every place: each entry point, on each card, does once what it does well; then it
// is done again for each call that it made, and each way in which that call can fail. Each run has
// the status that the rules give, its outputs are whole or not there, nothing stays behind but what
// is given up (tests/support/thrown_pointers.h), and no PIN goes out more often than it was
// entered.
//
// By default a sample that KELMORA_FAULTS=SEED[:ONE_IN] draws; KELMORA_FAULTS=all runs them all.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>

#include "driver_memory.h"
#include "fault_journeys.h"
#include "fault_outcomes.h"
#include "platform/fixed_paths.h"
#include "support/platform_calls.h"
#include "support/statuses.h"
#include "support/thrown_pointers.h"

namespace faults {
namespace {

using boundary::Steps;
using KelmoraID::testing::platformCalls;
using virtual_card::Exchange;
using virtual_card::Fault;

// --- What is planted, to see that it is found: KELMORA_PLANTED=rule|verify|leak|output

bool isPlanted(const char* what) {
    static const char* planted = std::getenv("KELMORA_PLANTED");
    return planted != nullptr && std::string(planted) == what;
}

// --- Which runs

struct Choice {
    bool all = false;
    unsigned long seed = 1;
    unsigned long oneIn = 150;
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
bool isChosen() {
    static unsigned long long state = choice().seed;
    // Knuth's generator (MMIX): the same runs for the same seed.
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return choice().all || (state >> 33) % choice().oneIn == 0;
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

// Errors that are thrown as pointers: freed here, since nobody else does.
std::runtime_error* thrown[64];
int thrownCount = 0;
void freeThrown() {
    while (thrownCount > 0) delete thrown[--thrownCount];
}

// A slot of the table, through which the driver is entered.
template <auto member>
struct Slot;
template <typename... Arguments, DWORD (WINAPI* CARD_DATA::*member)(Arguments...)>
struct Slot<member> {
    static inline DWORD(WINAPI* original)(Arguments...) = nullptr;
    static DWORD WINAPI call(Arguments... arguments) {
        const InsideDriver inside;
        return original(arguments...);
    }
    static void put(CARD_DATA& data) {
        if (data.*member == nullptr || data.*member == call) return;
        original = data.*member;
        data.*member = call;
    }
};

void putSlots(CARD_DATA& data) {
    Slot<&CARD_DATA::pfnCardDeleteContext>::put(data);
    Slot<&CARD_DATA::pfnCardQueryCapabilities>::put(data);
    Slot<&CARD_DATA::pfnCardGetContainerInfo>::put(data);
    Slot<&CARD_DATA::pfnCardAuthenticatePin>::put(data);
    Slot<&CARD_DATA::pfnCardReadFile>::put(data);
    Slot<&CARD_DATA::pfnCardEnumFiles>::put(data);
    Slot<&CARD_DATA::pfnCardGetFileInfo>::put(data);
    Slot<&CARD_DATA::pfnCardQueryFreeSpace>::put(data);
    Slot<&CARD_DATA::pfnCardQueryKeySizes>::put(data);
    Slot<&CARD_DATA::pfnCardSignData>::put(data);
    Slot<&CARD_DATA::pfnCardRSADecrypt>::put(data);
    Slot<&CARD_DATA::pfnCardConstructDHAgreement>::put(data);
    Slot<&CARD_DATA::pfnCardDeriveKey>::put(data);
    Slot<&CARD_DATA::pfnCardDestroyDHAgreement>::put(data);
    Slot<&CARD_DATA::pfnCardAuthenticateEx>::put(data);
    Slot<&CARD_DATA::pfnCardDeauthenticateEx>::put(data);
    Slot<&CARD_DATA::pfnCardGetContainerProperty>::put(data);
    Slot<&CARD_DATA::pfnCardGetProperty>::put(data);
    Slot<&CARD_DATA::pfnCardSetProperty>::put(data);
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

// What was opened has been closed; of the failed call nothing was.
void expectClosed(const Journey& journey, const Done& run, const std::string& failedCall,
                  bool keepsSecondCertificate) {
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
    const int loaded = run.handles.libraries - count("FreeLibrary");
    const bool wasAborted = run.handles.hasPrompted && run.outcome.status == status::unexpected;
    EXPECT_TRUE(loaded == 0 || (loaded == 1 && wasAborted)) << loaded << journey.variant;
}

int verifiesWithPin(const Done& run) {
    int sent = 0;
    for (const Exchange& exchange : run.exchanges) {
        const bool hasPin = exchange.command.at(1) == 0x20 && exchange.command.size() > 5;
        // A command that met a card which was reset goes out once more.
        if (hasPin && exchange.code != status::resetCard) ++sent;
    }
    return sent;
}

// Standard output has the driver's lines; they go nowhere meanwhile.
class Silence {
public:
    Silence() : kept_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int kept_;
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
        plan(card, planned);
        run.outcome = journey.act(card);
        run.allocations = driverAllocations();
        run.calls = calls;
        run.exchanges = card.reader.exchanges();
        if (planned.kind == Kind::memory) struck = driverAllocationFailed();
        if (planned.kind == Kind::platformCall) struck = platform.failed;
        failDriverAllocation(0);
        platform.failNth(0);
        PlatformSide::failAllocation(0);
        card.reader.clearFaults();

        if (run.outcome.status == 0 && !isAcquired) {
            // What an acquisition gives is what the files from memory say.
            for (const char* file : {"cmapfile", "kxc00", "ksc01"}) {
                const Bytes content = card.readFile("mscp", file).bytes;
                run.outcome.given.insert(run.outcome.given.end(), content.begin(), content.end());
            }
            const Bytes identifier = card.readFile(nullptr, "cardid").bytes;
            run.outcome.given.insert(run.outcome.given.end(), identifier.begin(), identifier.end());
        }
        const bool isThird = card.containers() > 2;
        if (!isAcquired && !card.acquired && card.data.pvVendorSpecific != nullptr) {
            // A context that was half filled stays in the record, and the table is not filled.
            Slot<&CARD_DATA::pfnCardDeleteContext>::call(&card.data);
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
    expectClosed(journey, run, failedCall, keepsSecondCertificate);
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
    add(Way::LostReply, {status::notTransacted, status::removedCard});
    add(Way::CutReply, {0, 1, 2, 3});
    add(Way::StatusWord,
        {0x6982, 0x6A82, 0x6A86, 0x6100, 0x6110, 0x6C10, 0x9000, 0x6282, 0x63C0, 0x63C2, 0x6300,
         0x6700, 0x6983, 0x6984, 0x6985, 0x6986, 0x6A88, 0x6D00, 0x6F00, 0x0000, 0xFFFF});
    add(Way::StatusWord, {0x6101, 0x6100}, Repeated::forEver);
    add(Way::ResetCard, {0});
    add(Way::ResetCard, {0}, Repeated::twice);
    for (const DWORD code : {status::removedCard, status::noService}) {
        list.push_back({Kind::exchange, 0, {Way::ResetCard, 0}, Repeated::reconnectFails, code});
    }
    add(Way::RemoveCard, {0});
    add(Way::ClaimedLength, {0, 1, 2, 259, 510, 513, 0xFFFFFFFF});
    add(Way::WrongData, {0x00, 0xFF});
    add(Way::LongData, {0x00, 0xFF});
    return list;
}

class EveryFault : public ::testing::TestWithParam<std::tuple<std::size_t, int>> {
protected:
    const Journey& journey() const { return journeys[std::get<0>(GetParam())]; }
    int cardType() const { return std::get<1>(GetParam()); }

    // One run with a fault, held against what the rules say.
    void check(const Planned& planned, const std::string& failedCall, Expected expected) {
        ++tally()[journey().entryPoint][static_cast<std::size_t>(planned.kind)];
        if (isPlanted("rule") && planned.n == 1) expected.statuses = {0xBAD};
        const Done run = go(journey(), cardType(), planned, failedCall);
        const DWORD status = run.outcome.status;
        if (planned.kind == Kind::exchange && expected.statuses.empty()) {
            const bool reconnects = planned.repeated != Repeated::reconnectFails;
            const Steps steps =
                boundary::stepsOf(run.exchanges, planned.n, planned.fault, reconnects);
            expected.statuses = {journey().rule(goodSteps_, steps)};
        }
        EXPECT_TRUE(std::ranges::find(expected.statuses, status) != expected.statuses.end())
            << std::hex << "ended with " << status << ", the rules say "
            << (expected.statuses.empty() ? 0 : expected.statuses.front());
        const bool isWhole = journey().isRandom
                                 ? run.outcome.given.size() == good_.outcome.given.size()
                                 : run.outcome.given == good_.outcome.given;
        if (status == good_.outcome.status) {
            EXPECT_TRUE(isWhole || !expected.outputsAsGood) << "other outputs than in a good run";
        } else if (planned.kind == Kind::memory) {
            // A line of the log that finds no memory comes behind the outputs.
            EXPECT_TRUE(isWhole || run.outcome.given.empty()) << "outputs in part";
        } else {
            EXPECT_EQ(run.outcome.given, Bytes{}) << "outputs beside a failure";
        }
        const int allowed = isPlanted("verify") ? 0 : journey().pins;
        EXPECT_LE(verifiesWithPin(run), allowed) << "a PIN went out too often";
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

    Done good_;
    Steps goodSteps_;
};

TEST_P(EveryFault, EndsAsTheRulesSay) {
    good_ = go(journey(), cardType(), {}, "");
    const bool isRefused = std::string(journey().entryPoint) == "CardDeauthenticateEx";
    ASSERT_EQ(good_.outcome.status, isRefused ? status::unsupportedFeature : status::success);
    if (HasFailure()) return;
    goodSteps_ = boundary::stepsOf(good_.exchanges);
    tally()[journey().entryPoint];

    if (journey().rule != nullptr) {
        ASSERT_EQ(journey().rule(goodSteps_, goodSteps_), good_.outcome.status);
        for (std::size_t n = 1; n <= good_.exchanges.size(); ++n) {
            for (Planned planned : faultsOfAnExchange()) {
                if (!isChosen()) continue;
                planned.n = n;
                SCOPED_TRACE(::testing::Message()
                             << "exchange " << n << ", fault " << int(planned.fault.kind)
                             << " of 0x" << std::hex << planned.fault.value << std::dec
                             << ", repeated " << int(planned.repeated));
                const bool isWrong = planned.fault.kind == Fault::Kind::WrongData ||
                                     planned.fault.kind == Fault::Kind::LongData;
                const bool dataDecides =
                    isWrong && (journey().rule == boundary::statusOfAcquisition ||
                                journey().rule == boundary::statusOfPin);
                Expected expected{{}, journey().rule == boundary::statusOfAcquisition};
                if (dataDecides) expected = afterWrongData(journey());
                check(planned, "", expected);
                if (HasFailure()) return;
            }
        }
    }

    const PlatformSide card(cardType());
    int platformCall = 0;
    int callersAllocation = 0;
    for (std::size_t at = 0; at < good_.calls.size(); ++at) {
        const std::string& name = good_.calls[at].name;
        if (name == "pfnCspAlloc") {
            ++callersAllocation;
            if (!isChosen()) continue;
            SCOPED_TRACE(::testing::Message() << "pfnCspAlloc " << callersAllocation);
            check({Kind::callersMemory, static_cast<std::size_t>(callersAllocation)}, name,
                  afterCallersAllocation(journey()));
        } else {
            ++platformCall;
            if (name.starts_with("SCardTransmit")) continue;  // gone through above
            for (const DWORD code : codesOf(name)) {
                if (!isChosen()) continue;
                SCOPED_TRACE(::testing::Message()
                             << name << ", call " << platformCall << ", 0x" << std::hex << code);
                Planned planned{Kind::platformCall, static_cast<std::size_t>(platformCall)};
                planned.code = code;
                check(planned, name, afterPlatformCall(journey(), card, good_.calls, at, code));
            }
        }
        if (HasFailure()) return;
    }

    // From here on an exception marks the process: it pairs no card any more.
    const auto pairing = std::ranges::find(good_.calls, "CryptBinaryToStringA", &Call::name);
    const bool pairs = pairing != good_.calls.end();
    for (long n = 1; n <= good_.allocations; ++n) {
        if (!isChosen()) continue;
        SCOPED_TRACE(::testing::Message() << "operator new " << n);
        const Expected expected = afterAllocation(journey(), good_.calls, n);
        const Planned planned{Kind::memory, static_cast<std::size_t>(n)};
        if (pairs && n > pairing->allocationsBefore) {
            inProcessOfItsOwn(planned, expected);
        } else {
            check(planned, "", expected);
        }
        if (HasFailure()) return;
    }
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
    logFilePath();  // Made on its first use, and not by the driver.
    KelmoraID::testing::onPlatformCall = crossing;
    KelmoraID::testing::onThrownPointer = [](void* error) {
        if (thrownCount < 64) thrown[thrownCount++] = static_cast<std::runtime_error*>(error);
    };
    return true;
}();

}  // namespace
}  // namespace faults

// The export, through which the driver is entered, and its table.
extern "C" DWORD WINAPI __real_CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);
extern "C" DWORD WINAPI __wrap_CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);
extern "C" DWORD WINAPI __wrap_CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags) {
    DWORD status = 0;
    {
        const faults::InsideDriver inside;
        status = __real_CardAcquireContext(pCardData, dwFlags);
    }
    if (status == 0) faults::putSlots(*pCardData);
    return status;
}
