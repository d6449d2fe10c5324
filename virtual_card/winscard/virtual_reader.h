// A reader with a virtual card in it, to stand behind the seam of the double of winscard. Whoever
// uses it hands seam() to SetCardSeam, of the library linked in or of the one loaded by name:
//
//     virtual_card::VirtualReader reader(*virtual_card::findGeneration(5));
//     SetCardSeam(reader.seam());
//
// The reader takes what a caller does wrong as PC/SC does: a wrong handle, a protocol that is not
// the card's, a buffer too small. And it can do to the caller what readers and cards do to it: see
// Fault.
#pragma once

#include <functional>
#include <memory>

#include "virtual_card/virtual_card.h"
#include "virtual_card/winscard/card_seam.h"

namespace virtual_card {

/// PC/SC statuses that the reader gives.
namespace pcsc {
inline constexpr std::uint32_t success = 0;
inline constexpr std::uint32_t invalidHandle = 0x80100003;
inline constexpr std::uint32_t insufficientBuffer = 0x80100008;
inline constexpr std::uint32_t noSmartcard = 0x8010000C;
inline constexpr std::uint32_t protocolMismatch = 0x8010000F;
inline constexpr std::uint32_t notTransacted = 0x80100016;
inline constexpr std::uint32_t resetCard = 0x80100068;
inline constexpr std::uint32_t removedCard = 0x80100069;
inline constexpr std::uint32_t protocolT0 = 1;
inline constexpr std::uint32_t protocolT1 = 2;
}  // namespace pcsc

/// Something that goes wrong at one exchange.
struct Fault {
    enum class Kind {
        TransportError,  ///< the command does not reach the card; `value` is the PC/SC code
        LostReply,       ///< the card carries the command out; `value` is the PC/SC code, and with
                         ///< pcsc::resetCard the card is reset then
        CutReply,        ///< of the card's reply only the first `value` bytes arrive (0, 1, ...)
        StatusWord,      ///< the command does not reach the card; `value` is the status word
        ResetCard,       ///< the card is reset first, as if another program had done so
        RemoveCard,      ///< the card is pulled out first
        ClaimedLength,   ///< the reply arrives and its length is told as `value`, however wrong
        WrongData,  ///< each byte of the reply's data arrives as `value`; the status word stays
        LongData,   ///< 256 bytes, each of them `value`, and 9000 arrive
    };
    Kind kind = Kind::TransportError;
    std::uint32_t value = 0;
};

/// One call of SCardTransmit as it went.
struct Exchange {
    Bytes command;
    std::uint32_t code = 0;  ///< of PC/SC
    Bytes reply;             ///< with the status word; empty when the code is not 0
};

class VirtualReader {
public:
    /// A reader with a new card of that generation, connected and ready: cardHandle() and
    /// contextHandle() hold without SCardConnect as well.
    explicit VirtualReader(const Generation& generation);
    VirtualReader(const VirtualReader&) = delete;
    VirtualReader& operator=(const VirtualReader&) = delete;

    const CardSeam* seam() const { return &seam_; }

    std::uintptr_t cardHandle() const { return cardHandle_; }
    std::uintptr_t contextHandle() const { return contextHandle_; }
    /// Other values for the handles, as a system chooses them. The old ones hold no longer.
    void setHandles(std::uintptr_t card, std::uintptr_t context) {
        cardHandle_ = card;
        contextHandle_ = context;
    }

    VirtualCard& card() { return *card_; }
    /// The protocol in use, pcsc::protocolT0 or pcsc::protocolT1: at first that of the generation.
    std::uint32_t protocol() const { return protocol_; }
    void setProtocol(std::uint32_t protocol) { protocol_ = protocol; }

    /// Another program resets the card: the next call learns of it (SCARD_W_RESET_CARD), and each
    /// one after it until SCardReconnect.
    void resetCard();
    /// The card is pulled out: everything fails with SCARD_W_REMOVED_CARD.
    void removeCard();
    /// The same card is put in again, with power from anew. The old connection stays dead until
    /// SCardReconnect or SCardConnect.
    void insertCard();

    // The middleman ----------------------------------------------------------------------------

    /// Lets the n-th exchange from now on (1 is the next one) go wrong in that way. Several can
    /// wait at a time.
    void failTransmit(std::size_t n, Fault fault);
    /// Takes away all faults that still wait.
    void clearFaults() { faults_.clear(); }
    /// The code that the next calls of SCardReconnect give, the card unchanged; 0 lets them work.
    void failReconnect(std::uint32_t code) { reconnectCode_ = code; }
    /// The code that the next calls of SCardStatus give; 0 lets them work.
    void failStatus(std::uint32_t code) { statusCode_ = code; }

    /// All exchanges since the start, or since the last clearExchanges.
    const std::vector<Exchange>& exchanges() const { return exchanges_; }
    void clearExchanges() { exchanges_.clear(); }
    /// How often SCardReconnect was called.
    std::size_t reconnects() const { return reconnects_; }
    /// How many more SCardBeginTransaction than SCardEndTransaction there were.
    int openTransactions() const { return openTransactions_; }
    /// How often SCardBeginTransaction was called, well or not.
    std::size_t transactionsBegun() const { return transactionsBegun_; }

    /// Is shown each command ahead of its way to the card.
    std::function<void(ByteView)> onCommand;
    /// Is shown each exchange as it ends.
    std::function<void(const Exchange&)> onExchange;

private:
    enum class Connection { Good, CardWasReset, CardGone };

    std::uint32_t check(std::uintptr_t handle) const;
    std::uint32_t exchange(std::uint32_t protocol, ByteView command, std::uint8_t* reply,
                           std::uint32_t* replyLength, Bytes& received);
    std::uint32_t deliver(const Bytes& bytes, std::uint8_t* reply,
                          std::uint32_t* replyLength) const;
    std::uint32_t connect(std::uint32_t protocols, std::uint32_t* activeProtocol);

    CardSeam seam_{};
    std::uintptr_t cardHandle_ = 0x0CA2D;
    std::uintptr_t contextHandle_ = 0x0C021;
    std::unique_ptr<VirtualCard> card_;
    std::uint32_t protocol_;
    Connection connection_ = Connection::Good;
    bool isInserted_ = true;
    std::uint32_t reconnectCode_ = 0;
    std::uint32_t statusCode_ = 0;
    std::size_t transmits_ = 0;
    std::map<std::size_t, Fault> faults_;
    std::vector<Exchange> exchanges_;
    std::size_t reconnects_ = 0;
    int openTransactions_ = 0;
    std::size_t transactionsBegun_ = 0;
};

}  // namespace virtual_card
