// The rows of the smart-card database: Windows takes the first row whose ATR fits the card's under
// the row's mask, and loads the driver that the row names.
#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "doctor/checks.h"

namespace cardhost::doctor {

namespace {

constexpr const char* database = R"(SOFTWARE\Microsoft\Cryptography\Calais\SmartCards)";
constexpr const char* driverValue = "80000001";
constexpr const char* installAgain =
    "Install the package again, or import kelmora-id-minidriver.reg as administrator.";

struct ExpectedText {
    const char* name;
    const char* text;
};

constexpr ExpectedText expectedTexts[] = {
    {"Crypto Provider", "Microsoft Base Smart Card Crypto Provider"},
    {"Smart Card Key Storage Provider", "Microsoft Smart Card Key Storage Provider"},
};

struct Row {
    std::string name;
    Bytes atr;
    Bytes mask;
    std::string driver;

    bool isOurs() const { return isSameName(fileNameOf(driver), driverLibrary); }

    bool fits(ByteView card) const {
        if (atr.empty() || atr.size() != card.size() || mask.size() != card.size()) return false;
        for (std::size_t i = 0; i < card.size(); ++i) {
            if ((card[i] & mask[i]) != atr[i]) return false;
        }
        return true;
    }
};

Row rowOf(const Examination& examination, View view, const std::string& name) {
    const std::string key = fmt::format("{}\\{}", database, name);
    const auto bytes = [&](const char* value) {
        const auto found = examination.machine.value(view, key, value);
        return found && found->kind == RegistryValue::Kind::binary ? found->binary : Bytes();
    };
    Row row{name, bytes("ATR"), {}, examination.text(view, key, driverValue)};
    const bool hasMask = examination.machine.value(view, key, "ATRMask").has_value();
    row.mask = hasMask ? bytes("ATRMask") : Bytes(row.atr.size(), 0xFF);
    return row;
}

/// Whether the row names the file that belongs there: by its name alone, or by its place in a
/// system folder; 32-bit programs see theirs under both names.
bool namesInstalledFile(const Examination& examination, View view, const Row& row) {
    if (isSameName(row.driver, driverLibrary)) return true;
    for (const View place : {view, View::bits64}) {
        const std::string folder = examination.machine.systemFolder(place);
        if (isSameName(row.driver, fmt::format("{}\\{}", folder, driverLibrary))) return true;
    }
    return false;
}

/// Looks at a row of ours by itself; whether there is nothing to say.
bool isSound(Examination& examination, View view, const Row& row) {
    const std::string subject = fmt::format("{}, row '{}'", programsOf(view), row.name);
    const std::string key = fmt::format("{}\\{}", database, row.name);
    bool sound = true;
    const auto complain = [&](const char* id, const std::string& found) {
        examination.findings.problem(id, subject, found, installAgain);
        sound = false;
    };
    if (row.atr.empty()) {
        complain("registration.atr", "has no ATR, so it fits no card");
    } else if (row.mask.size() != row.atr.size()) {
        complain("registration.mask",
                 fmt::format("its mask has {} bytes and its ATR {}: Windows passes it over",
                             row.mask.size(), row.atr.size()));
    } else if (!std::equal(
                   row.atr.begin(), row.atr.end(), row.mask.begin(),
                   [](std::uint8_t atr, std::uint8_t mask) { return (atr & ~mask) == 0; })) {
        complain("registration.mask",
                 "its ATR has bits where its mask has none, so it fits no card");
    }
    if (!namesInstalledFile(examination, view, row)) {
        complain("registration.path",
                 fmt::format("names {}, not the driver in {}: that file is loaded, if it is there",
                             row.driver, examination.machine.systemFolder(view)));
    }
    for (const ExpectedText& expected : expectedTexts) {
        const std::string text = examination.text(view, key, expected.name);
        if (text == expected.text) continue;
        complain("registration.value",
                 text.empty()
                     ? fmt::format("has no value '{}'", expected.name)
                     : fmt::format("'{}' is '{}', not '{}'", expected.name, text, expected.text));
    }
    return sound;
}

/// An ATR that a card of ours can have.
struct Probe {
    std::string card;  // as shown
    Bytes atr;
};

std::vector<Probe> probes() {
    // Any byte will do behind the ATR: the driver takes each.
    constexpr std::uint8_t furtherByte = 0xDA;
    std::vector<Probe> list;
    for (const CardGeneration& generation : generations()) {
        Bytes atr(generation.atr.begin(), generation.atr.end());
        list.push_back({fmt::format("type {}", generation.type), atr});
        atr.push_back(furtherByte);
        list.push_back({fmt::format("type {} with a longer ATR", generation.type), atr});
    }
    return list;
}

/// What all cards say that a row of another driver stands in the way of, or behind.
struct Rival {
    std::string row;
    std::string driver;
    std::vector<std::string> cards;
};

void addRival(std::vector<Rival>& rivals, const Row& row, const std::string& card) {
    auto rival = std::find_if(rivals.begin(), rivals.end(),
                              [&](const Rival& known) { return known.row == row.name; });
    if (rival == rivals.end()) rival = rivals.insert(rivals.end(), {row.name, row.driver, {}});
    rival->cards.push_back(card);
}

std::string shownDriver(const std::string& driver) {
    return driver.empty() ? "no driver" : fmt::format("the driver {}", driver);
}

void checkView(Examination& examination, View view) {
    Findings& findings = examination.findings;
    const auto names = examination.machine.subkeys(view, database);
    if (!names) {
        findings.problem("registration.database", programsOf(view),
                         "have no smart-card database, so Windows knows no card", installAgain);
        return;
    }
    std::vector<Row> rows;
    bool isAllSound = true;
    for (const std::string& name : *names) {
        rows.push_back(rowOf(examination, view, name));
        if (rows.back().isOurs()) isAllSound &= isSound(examination, view, rows.back());
    }
    std::vector<std::string> missing;
    std::vector<Rival> ahead;
    std::vector<Rival> behind;
    for (const Probe& probe : probes()) {
        bool isServed = false;
        bool isTaken = false;
        for (const Row& row : rows) {
            if (!row.fits(probe.atr)) continue;
            if (row.isOurs()) {
                isServed = true;
            } else if (isServed) {
                addRival(behind, row, probe.card);
            } else {
                addRival(ahead, row, probe.card);
                isTaken = true;
            }
        }
        if (!isServed && !isTaken) missing.push_back(probe.card);
    }
    const bool hasOwn =
        std::any_of(rows.begin(), rows.end(), [](const Row& row) { return row.isOurs(); });
    if (!hasOwn) {
        findings.problem("registration.none", programsOf(view),
                         fmt::format("no row of the database names {}", driverLibrary),
                         installAgain);
    } else if (!missing.empty()) {
        findings.problem("registration.missing", programsOf(view),
                         fmt::format("no row fits a card of {}", fmt::join(missing, ", ")),
                         installAgain);
    }
    for (const Rival& rival : ahead) {
        findings.problem(
            "registration.rival", fmt::format("{}, row '{}'", programsOf(view), rival.row),
            fmt::format("comes first for a card of {} and names {}: that one is loaded, not ours",
                        fmt::join(rival.cards, ", "), shownDriver(rival.driver)),
            "Remove that driver, or its row from the registry, if this one is to serve the card.");
    }
    for (const Rival& rival : behind) {
        findings.note(
            "registration.other", fmt::format("{}, row '{}'", programsOf(view), rival.row),
            fmt::format("also fits a card of {} and names {}; ours comes first",
                        fmt::join(rival.cards, ", "), shownDriver(rival.driver)),
            "Remove that driver, or its row from the registry: which of several rows Windows "
            "takes is nothing to rely on.");
    }
    if (hasOwn && isAllSound && missing.empty() && ahead.empty()) {
        findings.well("registration.rows", programsOf(view),
                      fmt::format("{} card types registered, each for both lengths of its ATR",
                                  std::size(generations())));
    }
}

}  // namespace

void checkRegistration(Examination& examination) {
    for (const View view : examination.views()) checkView(examination, view);
}

}  // namespace cardhost::doctor
