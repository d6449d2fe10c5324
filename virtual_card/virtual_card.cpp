#include "virtual_card/virtual_card.h"

#include <sstream>
#include <stdexcept>

#include "virtual_card/commands.h"

namespace virtual_card {

namespace {

struct CommandRow {
    std::uint8_t ins;
    Reply (*carryOut)(CardState& card, const Command& command);
    bool givesDataAtOnce;  ///< whatever the generation's style: the command carries no data itself
};

constexpr std::uint8_t performSecurityOperationIns = 0x2A;
constexpr std::uint8_t getResponseIns = 0xC0;

constexpr CommandRow commandTable[] = {
    {0x20, verify, false},
    {0x22, manageSecurityEnvironment, false},
    {performSecurityOperationIns, performSecurityOperation, false},
    {0xA4, select, false},
    {0xB0, readBinary, true},
    {getResponseIns, getResponse, true},
    {0xCB, getData, false},
};

/// Cuts the data to what the command can take back and keeps the rest for GET RESPONSE.
Reply handOut(CardState& card, const Command& command, Reply reply) {
    const bool keepsAll =
        card.generation.replyStyle == ReplyStyle::ByGetResponse || !command.le.has_value();
    const std::size_t room = keepsAll ? 0 : *command.le;
    if (reply.data.size() <= room) return reply;
    const auto cut = reply.data.begin() + static_cast<std::ptrdiff_t>(room);
    card.waiting = {Bytes(cut, reply.data.end()), reply.status};
    reply.data.erase(cut, reply.data.end());
    reply.status = sw::bytesWaiting(card.waiting.data.size());
    return reply;
}

}  // namespace

VirtualCard::VirtualCard(const Generation& generation)
    : state_(generation), atr_(fromHex(generation.atr)) {}

Bytes VirtualCard::transmit(ByteView bytes) {
    auto command = parseCommand(bytes);
    if (!command) return encodeReply({{}, sw::wrongLength});
    return encodeReply(carryOut(*command));
}

Reply VirtualCard::carryOut(const Command& command) {
    if (command.cla != 0x00 && command.cla != 0x10) return {{}, sw::classNotSupported};
    for (const CommandRow& row : commandTable) {
        if (row.ins != command.ins) continue;
        if (row.ins != performSecurityOperationIns) {
            if (command.cla == 0x10) return {{}, sw::chainingNotSupported};
            state_.chain.reset();  // given up by any other command
        }
        // What was not fetched is gone with the next command.
        if (row.ins != getResponseIns) state_.waiting = {};
        Reply reply = row.carryOut(state_, command);
        if (row.givesDataAtOnce || reply.data.empty()) return reply;
        return handOut(state_, command, std::move(reply));
    }
    return {{}, sw::instructionNotSupported};
}

std::string VirtualCard::saveState() const {
    std::ostringstream text;
    text << "generation " << generation().cardType << '\n';
    for (const PinState& pin : state_.security.pins()) {
        text << "tries " << pin.row->directory << ' ' << unsigned{pin.row->reference} << ' '
             << pin.triesLeft << '\n';
    }
    return text.str();
}

void VirtualCard::loadState(const std::string& text) {
    std::istringstream input(text);
    std::string word;
    int cardType = 0;
    if (!(input >> word >> cardType) || word != "generation" || cardType != generation().cardType) {
        throw std::runtime_error("the state is not that of a card of this generation");
    }
    std::vector<PinState> pins = state_.security.pins();
    for (PinState& pin : pins) {
        unsigned directory = 0;
        unsigned reference = 0;
        unsigned tries = 0;
        if (!(input >> word >> directory >> reference >> tries) || word != "tries" ||
            directory != pin.row->directory || reference != pin.row->reference ||
            tries > pin.row->tries) {
            throw std::runtime_error("the state of the card is not readable");
        }
        pin.triesLeft = tries;
    }
    if (input >> word) throw std::runtime_error("the state of the card goes on behind its end");
    state_.security.pins() = pins;
}

}  // namespace virtual_card
