#include "virtual_card/winscard/virtual_reader.h"

#include <algorithm>

namespace virtual_card {

namespace {

// States of a reader as SCardStatus tells them: ready for commands, or without a card.
constexpr std::uint32_t stateSpecific = 6;

// SCardDisconnect, SCardReconnect and SCardEndTransaction: what becomes of the card.
constexpr std::uint32_t leaveCard = 0;

VirtualReader& reader(void* self) {
    return *static_cast<VirtualReader*>(self);
}

std::int32_t status(std::uint32_t code) {
    return static_cast<std::int32_t>(code);
}

}  // namespace

VirtualReader::VirtualReader(const Generation& generation)
    : card_(std::make_unique<VirtualCard>(generation)),
      protocol_(generation.protocol == 0 ? pcsc::protocolT0 : pcsc::protocolT1) {
    seam_.self = this;
    seam_.readerName = "Virtual Reader";
    seam_.establishContext = [](void* self, std::uintptr_t* context) {
        *context = reader(self).contextHandle();
        return status(pcsc::success);
    };
    seam_.releaseContext = [](void* self, std::uintptr_t context) {
        return status(context == reader(self).contextHandle() ? pcsc::success
                                                              : pcsc::invalidHandle);
    };
    seam_.listReaders = seam_.releaseContext;
    seam_.connect = [](void* self, std::uintptr_t context, std::uint32_t, std::uint32_t protocols,
                       std::uintptr_t* card, std::uint32_t* activeProtocol) {
        if (context != reader(self).contextHandle()) return status(pcsc::invalidHandle);
        *card = reader(self).cardHandle();
        return status(reader(self).connect(protocols, activeProtocol));
    };
    seam_.reconnect = [](void* self, std::uintptr_t card, std::uint32_t, std::uint32_t protocols,
                         std::uint32_t initialization, std::uint32_t* activeProtocol) {
        VirtualReader& here = reader(self);
        ++here.reconnects_;
        if (card != here.cardHandle()) return status(pcsc::invalidHandle);
        if (here.reconnectCode_ != 0) return status(here.reconnectCode_);
        if (here.isInserted_ && initialization != leaveCard) here.card_->reset();
        return status(here.connect(protocols, activeProtocol));
    };
    seam_.disconnect = [](void* self, std::uintptr_t card, std::uint32_t disposition) {
        VirtualReader& here = reader(self);
        if (card != here.cardHandle()) return status(pcsc::invalidHandle);
        if (here.isInserted_ && disposition != leaveCard) here.card_->reset();
        return status(pcsc::success);
    };
    seam_.beginTransaction = [](void* self, std::uintptr_t card) {
        VirtualReader& here = reader(self);
        ++here.transactionsBegun_;
        const std::uint32_t code = here.check(card);
        if (code == pcsc::success) ++here.openTransactions_;
        return status(code);
    };
    seam_.endTransaction = [](void* self, std::uintptr_t card, std::uint32_t disposition) {
        VirtualReader& here = reader(self);
        if (card != here.cardHandle()) return status(pcsc::invalidHandle);
        if (here.openTransactions_ == 0) return status(pcsc::notTransacted);
        --here.openTransactions_;
        if (here.isInserted_ && disposition != leaveCard) here.card_->reset();
        return status(pcsc::success);
    };
    seam_.status = [](void* self, std::uintptr_t card, std::uint32_t* state,
                      std::uint32_t* protocol, std::uint8_t* atr, std::uint32_t* atrLength) {
        VirtualReader& here = reader(self);
        if (here.statusCode_ != 0) return status(here.statusCode_);
        if (std::uint32_t code = here.check(card); code != pcsc::success) return status(code);
        const Bytes& bytes = here.card_->atr();
        if (*atrLength < bytes.size()) return status(pcsc::insufficientBuffer);
        std::copy(bytes.begin(), bytes.end(), atr);
        *atrLength = static_cast<std::uint32_t>(bytes.size());
        *state = stateSpecific;
        *protocol = here.protocol_;
        return status(pcsc::success);
    };
    seam_.transmit = [](void* self, std::uintptr_t card, std::uint32_t protocol,
                        const std::uint8_t* command, std::uint32_t commandLength,
                        std::uint8_t* reply, std::uint32_t* replyLength) {
        VirtualReader& here = reader(self);
        if (card != here.cardHandle()) return status(pcsc::invalidHandle);
        ByteView bytes(command, commandLength);
        Exchange exchange{Bytes(bytes.begin(), bytes.end()), 0, {}};
        if (here.onCommand) here.onCommand(bytes);
        exchange.code = here.exchange(protocol, bytes, reply, replyLength, exchange.reply);
        here.exchanges_.push_back(exchange);
        if (here.onExchange) here.onExchange(here.exchanges_.back());
        return status(exchange.code);
    };
}

std::uint32_t VirtualReader::check(std::uintptr_t handle) const {
    if (handle != cardHandle()) return pcsc::invalidHandle;
    switch (connection_) {
        case Connection::CardWasReset:
            return pcsc::resetCard;
        case Connection::CardGone:
            return pcsc::removedCard;
        default:
            return pcsc::success;
    }
}

std::uint32_t VirtualReader::connect(std::uint32_t protocols, std::uint32_t* activeProtocol) {
    if (!isInserted_) return pcsc::noSmartcard;
    if ((protocols & protocol_) == 0) return pcsc::protocolMismatch;
    connection_ = Connection::Good;
    *activeProtocol = protocol_;
    return pcsc::success;
}

void VirtualReader::resetCard() {
    card_->reset();
    if (connection_ == Connection::Good) connection_ = Connection::CardWasReset;
}

void VirtualReader::removeCard() {
    isInserted_ = false;
    connection_ = Connection::CardGone;
    card_->reset();
}

void VirtualReader::insertCard() {
    isInserted_ = true;
    card_->reset();
}

void VirtualReader::failTransmit(std::size_t n, Fault fault) {
    faults_[transmits_ + n] = fault;
}

std::uint32_t VirtualReader::deliver(const Bytes& bytes, std::uint8_t* reply,
                                     std::uint32_t* replyLength) const {
    const std::uint32_t room = *replyLength;
    *replyLength = static_cast<std::uint32_t>(bytes.size());
    if (room < bytes.size()) return pcsc::insufficientBuffer;
    std::copy(bytes.begin(), bytes.end(), reply);
    return pcsc::success;
}

std::uint32_t VirtualReader::exchange(std::uint32_t protocol, ByteView command, std::uint8_t* reply,
                                      std::uint32_t* replyLength, Bytes& received) {
    std::optional<Fault> fault;
    if (auto found = faults_.extract(++transmits_)) fault = found.mapped();

    if (fault && fault->kind == Fault::Kind::ResetCard) resetCard();
    if (fault && fault->kind == Fault::Kind::RemoveCard) removeCard();
    if (fault && fault->kind == Fault::Kind::TransportError) {
        *replyLength = 0;
        return fault->value;
    }
    std::uint32_t code = check(cardHandle());
    if (code == pcsc::success && protocol != protocol_) code = pcsc::protocolMismatch;
    if (code != pcsc::success) {
        *replyLength = 0;
        return code;
    }

    if (fault && fault->kind == Fault::Kind::StatusWord) {
        received = encodeReply({{}, static_cast<std::uint16_t>(fault->value)});
    } else {
        received = card_->transmit(command);
    }
    if (fault && fault->kind == Fault::Kind::LostReply) {
        received.clear();
        *replyLength = 0;
        if (fault->value == pcsc::resetCard) resetCard();
        return fault->value;
    }
    const auto wrong = static_cast<std::uint8_t>(fault ? fault->value : 0);
    if (fault && fault->kind == Fault::Kind::WrongData && received.size() > 2) {
        std::fill(received.begin(), received.end() - 2, wrong);
    }
    if (fault && fault->kind == Fault::Kind::LongData)
        received = encodeReply({Bytes(256, wrong), 0x9000});
    if (fault && fault->kind == Fault::Kind::CutReply && fault->value < received.size()) {
        received.resize(fault->value);
    }
    code = deliver(received, reply, replyLength);
    if (code != pcsc::success) received.clear();
    if (fault && fault->kind == Fault::Kind::ClaimedLength) *replyLength = fault->value;
    return code;
}

}  // namespace virtual_card
