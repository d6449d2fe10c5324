// The reading of a FINEID card as a script: what the minidriver sends at an acquisition, whole, for
// a card on which the first form of every SELECT works.
#pragma once

#include <string>
#include <vector>

#include "platform/minidriver.h"
#include "profiles/card_type.h"
#include "support/scripted_card.h"

namespace KelmoraID::testing {

/// The ATR of a card of that type, in hexadecimal; of an unknown one for any other.
const char* atrOf(CardType type);

/// One TLV element, short or long form as its length asks.
ByteVector tlv(BYTE tag, const ByteVector& value);
ByteVector operator+(const ByteVector& left, const ByteVector& right);
std::string hexOf(const ByteVector& value);

/// What the card holds.
struct FineidContent {
    ByteVector serialNumber = bytes("92 46 01 02 03 04 05 06 07 08");
    std::string label = "FINEID test card";
    std::vector<ByteVector> certificates;
};

/// EF.CIAInfo of that content.
ByteVector ciaInfo(const FineidContent& content);

/// The steps of one selectFINEIDApplication that succeeds.
void expectApplication(ScriptedCard& card);
/// The steps of one ReadFile: the directory walk, the SELECT and the READ BINARY commands.
void expectRead(ScriptedCard& card, const ByteVector& path, const ByteVector& content);
/// The steps of one GetCertificate; without a certificate at that index up to the directory.
void expectCertificate(ScriptedCard& card, const FineidContent& content, std::size_t index);
/// The steps of a whole acquisition with so many certificates asked for.
void expectAcquisition(ScriptedCard& card, const FineidContent& content, std::size_t asked);

/// A CARD_DATA of version 7 as the platform fills it, for a card of that type.
class PlatformRecord {
public:
    explicit PlatformRecord(CardType type);
    /// Deletes the context of an acquired record.
    ~PlatformRecord();
    PlatformRecord(const PlatformRecord&) = delete;
    PlatformRecord& operator=(const PlatformRecord&) = delete;

    CARD_DATA data{};
    ByteVector atr;

    /// Makes the n-th allocation from now on fail; 0 for none.
    static void failAllocation(int n);
    /// Buffers from pfnCspAlloc that were not freed yet.
    static int liveAllocations();
    /// The sizes asked of pfnCspAlloc since construction or the last call, in order.
    static std::vector<std::size_t> takeAllocatedSizes();
};

}  // namespace KelmoraID::testing
