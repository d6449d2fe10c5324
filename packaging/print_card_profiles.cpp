// Prints the supported cards as JSON, a list of {"type": number, "atr": hexadecimal text}: what the
// packages register with Windows comes from the table that the minidriver itself goes by.
#include <cstdio>

#include "profiles/card_profiles.h"

int main() {
    const char* separator = "[\n";
    for (const KelmoraID::CardProfile& card : KelmoraID::supportedCards()) {
        std::printf("%s  {\"type\": %u, \"atr\": \"", separator, static_cast<unsigned>(card.type));
        for (const BYTE byte : card.atr) std::printf("%02x", static_cast<unsigned>(byte));
        std::printf("\"}");
        separator = ",\n";
    }
    std::printf("\n]\n");
}
