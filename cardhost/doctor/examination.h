// One visit of the doctor: the machine, what was found so far, and what several checks ask of the
// machine and is asked once.
#pragma once

#include <algorithm>
#include <cctype>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "card_types.h"
#include "doctor/finding.h"
#include "doctor/machine.h"

namespace cardhost::doctor {

inline constexpr const char* driverLibrary = "kelmora-id-minidriver.dll";

class Examination {
public:
    Examination(Machine& machine, bool usesNetwork) : machine(machine), usesNetwork(usesNetwork) {}

    Machine& machine;
    const bool usesNetwork;
    Findings findings;
    /// Shows what was found so far: at the end of each section, and ahead of what may take long.
    std::function<void()> show = [] {};

    /// The views that programs of this machine have.
    std::vector<View> views() const {
        if (machine.architecture() == Architecture::x86) return {View::bits32};
        return {View::bits64, View::bits32};
    }

    const Readers& readers() {
        if (!readers_) readers_ = machine.readers();
        return *readers_;
    }

    /// The first reader with a card of ours; null without one.
    const ReaderState* readerWithCard() {
        const auto& list = readers().list;
        const auto found = std::find_if(list.begin(), list.end(), [](const ReaderState& reader) {
            return reader.status == SCARD_S_SUCCESS && generationOf(reader.atr) != nullptr;
        });
        return found == list.end() ? nullptr : &*found;
    }

    /// What that card shows; null without one.
    const CardFacts* card() {
        if (const ReaderState* reader = readerWithCard(); reader != nullptr && !card_) {
            card_ = machine.card(reader->name);
        }
        return card_ ? &*card_ : nullptr;
    }

    /// The text of a registry value; empty where it is no text or not there.
    std::string text(View view, const std::string& key, const std::string& name) const {
        const auto value = machine.value(view, key, name);
        return value && value->kind == RegistryValue::Kind::text ? value->text : std::string();
    }

    /// A registry number; nothing where it is none or not there.
    std::optional<std::uint32_t> number(const std::string& key, const std::string& name) const {
        const auto value = machine.value(views().front(), key, name);
        if (!value || value->kind != RegistryValue::Kind::number) return std::nullopt;
        return value->number;
    }

private:
    std::optional<Readers> readers_;
    std::optional<CardFacts> card_;
};

inline const char* programsOf(View view) {
    return view == View::bits64 ? "64-bit programs" : "32-bit programs";
}

/// Equal but for the case of Latin letters, as the system takes file names.
inline bool isSameName(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    });
}

/// What stands behind the last backslash.
inline std::string fileNameOf(const std::string& path) {
    return path.substr(path.rfind('\\') + 1);
}

}  // namespace cardhost::doctor
