// The readers, and whether a card of ours is in one of them.
#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "doctor/checks.h"
#include "doctor/nearest_atr.h"
#include "status_names.h"

namespace cardhost::doctor {

namespace {

/// How the names of the readers begin that Windows makes itself, with no place for a card.
constexpr std::string_view platformReaders[] = {
    "Windows Hello for Business",
    "Microsoft Virtual Smart Card",
    "Microsoft UICC",
    "Microsoft Passport",
};

bool isOfPlatform(const ReaderState& reader) {
    return std::any_of(
        std::begin(platformReaders), std::end(platformReaders),
        [&](std::string_view name) { return std::string_view(reader.name).starts_with(name); });
}

/// "is no card of this driver" and which it comes closest to.
std::string foreignCardText(ByteView atr) {
    const std::string nearest = nearestAtrText(atr);
    return fmt::format("a card that this driver does not know, ATR {}{}", hexSpaced(atr),
                       nearest.empty() ? ": not a FINEID card of a known type" : ": " + nearest);
}

void checkReader(Examination& examination, const ReaderState& reader) {
    Findings& findings = examination.findings;
    const auto status = static_cast<DWORD>(reader.status);
    if (isOfPlatform(reader)) {
        findings.note("readers.virtual", reader.name,
                      "made by Windows itself; no card can be put into it");
        return;
    }
    if (reader.status == SCARD_E_NO_SMARTCARD || reader.status == SCARD_W_REMOVED_CARD) {
        findings.well("readers.empty", reader.name, "no card in it");
        return;
    }
    if (reader.status == SCARD_E_SHARING_VIOLATION) {
        findings.problem("readers.held", reader.name,
                         "another program holds the card for itself: " + statusText(status),
                         "Close the programs that use the card, or take it out and put it in.");
        return;
    }
    if (reader.status != SCARD_S_SUCCESS) {
        findings.problem("readers.mute", reader.name,
                         "the card in it cannot be connected: " + statusText(status),
                         "Clean the card's contacts, put it in the right way round, try it in "
                         "another reader.");
        return;
    }
    const CardGeneration* generation = generationOf(reader.atr);
    if (generation != nullptr) {
        findings.well("readers.card", reader.name,
                      fmt::format("a FINEID card of type {}, ATR {}", generation->type,
                                  hexSpaced(reader.atr)));
    } else if (examination.readerWithCard() != nullptr) {
        findings.note("readers.foreign", reader.name, foreignCardText(reader.atr));
    } else {
        findings.problem("readers.foreign", reader.name, foreignCardText(reader.atr),
                         nearestAtrText(reader.atr).empty()
                             ? "Put in a FINEID card."
                             : "Try the card in another reader: one that garbles an ATR does so "
                               "every time. If the ATR stays, the card is of a new kind: record "
                               "it (docs/new-card.md) and report it.");
    }
}

}  // namespace

void checkReaders(Examination& examination) {
    Findings& findings = examination.findings;
    const Readers& readers = examination.readers();
    const bool isWindows = examination.machine.isWindows();
    if (!readers.failure.empty()) {
        findings.problem("readers.service", "smart-card service", readers.failure,
                         isWindows ? "Connect a reader; start the service Smart Card "
                                     "(sc start SCardSvr) as administrator."
                                   : "Start the PC/SC daemon: systemctl start pcscd.socket");
        return;
    }
    if (!isWindows && readers.areReal) findings.well("readers.service", "PC/SC daemon", "answers");
    if (std::all_of(readers.list.begin(), readers.list.end(), isOfPlatform)) {
        findings.problem("readers.none", "readers",
                         readers.list.empty() ? "no reader is connected"
                                              : "only readers of Windows itself are there",
                         isWindows ? "Connect a reader, and look in the Device Manager whether it "
                                     "has its driver."
                                   : "Connect a reader that the daemon has a driver for.");
    }
    for (const ReaderState& reader : readers.list) checkReader(examination, reader);
}

}  // namespace cardhost::doctor
