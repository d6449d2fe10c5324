#include "hostile_card.h"

#include <cstring>

#include "fuzz_target.h"

namespace fuzz {
namespace {

// No command of the product may be drawn into more GET RESPONSE than this: 64
// (apdu/get_response.h), each of which goes out once more after a reset.
constexpr std::size_t mostGetResponses = 2 * 64;

// The card is pulled out after so many exchanges, so that a run ends soon; with AtEnd::ForEver not
// before one endless command has been ended by the product's own bounds.
constexpr std::size_t mostExchanges = 2'000;
constexpr std::size_t mostExchangesForEver = mostGetResponses + 2'000;

constexpr std::uint32_t removedCard = 0x80100069;

constexpr std::size_t longestCommand = 5 + 255 + 1;  // of the short form

const virtual_card::Generation& generationOf(FuzzInput& input) {
    return virtual_card::generations()[input.below(virtual_card::generations().size())];
}

AtEnd endOf(FuzzInput& input) {
    const std::uint8_t choice = input.byte();
    const auto forEver = static_cast<std::uint8_t>(AtEnd::ForEver);
    return choice == forEver ? AtEnd::ForEver : static_cast<AtEnd>(choice % 3);
}

Bytes withStatus(Bytes data, unsigned status) {
    data.push_back(static_cast<std::uint8_t>(status >> 8));
    data.push_back(static_cast<std::uint8_t>(status));
    return data;
}

// ISO/IEC 7816-4, 5.3.3: a size in as few bytes as it needs.
Bytes controlParameters(std::uint32_t size) {
    Bytes number;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto digit = static_cast<std::uint8_t>(size >> shift);
        if (digit != 0 || !number.empty() || shift == 0) number.push_back(digit);
    }
    const auto length = static_cast<std::uint8_t>(number.size());
    Bytes parameters{0x62, static_cast<std::uint8_t>(length + 2), 0x80, length};
    parameters.insert(parameters.end(), number.begin(), number.end());
    return parameters;
}

bool isSelectOfFile(const Bytes& command) {
    return command.size() > 5 && command[1] == 0xA4 && (command[2] == 0x02 || command[2] == 0x09);
}

bool isRead(const Bytes& command) {
    return command.size() == 5 && command[1] == 0xB0;
}

}  // namespace

HostileCard::HostileCard(FuzzInput input)
    : input_(input),
      card_(generationOf(input_)),
      atEnd_(endOf(input_)),
      firstStep_(input_.place()) {
    seam_.self = this;
    seam_.transmit = [](void* self, std::uintptr_t card, std::uint32_t protocol,
                        const std::uint8_t* command, std::uint32_t commandLength,
                        std::uint8_t* reply, std::uint32_t* replyLength) {
        require(card == cardHandle, "a command goes to the card's handle");
        require(protocol == 1 || protocol == 2, "the send record is that of T=0 or T=1");
        require(command != nullptr && commandLength >= 4 && commandLength <= longestCommand,
                "a command is of the short form");
        require(reply != nullptr && replyLength != nullptr && *replyLength >= 2,
                "there is room for a status word");
        auto& own = *static_cast<HostileCard*>(self);
        const Bytes copy(command, command + commandLength);
        return static_cast<std::int32_t>(own.transmit(copy, reply, replyLength));
    };
    seam_.reconnect = [](void* self, std::uintptr_t card, std::uint32_t, std::uint32_t,
                         std::uint32_t, std::uint32_t*) {
        require(card == cardHandle, "the card's handle is reconnected");
        return static_cast<std::int32_t>(static_cast<HostileCard*>(self)->reconnect());
    };
    SetCardSeam(&seam_);
}

HostileCard::~HostileCard() {
    SetCardSeam(nullptr);
}

std::uint32_t HostileCard::transmit(const Bytes& command, std::uint8_t* reply,
                                    std::uint32_t* length) {
    getResponsesInARow_ = command[1] == 0xC0 ? getResponsesInARow_ + 1 : 0;
    if (command[1] == 0x20 && command.size() > 5) ++pinsSent_;
    require(getResponsesInARow_ <= mostGetResponses, "a command's GET RESPONSE come to an end");
    const std::uint32_t room = *length;
    const std::size_t limit = atEnd_ == AtEnd::ForEver ? mostExchangesForEver : mostExchanges;
    const Answer given =
        ++exchanges_ > limit ? Answer{removedCard, {}, std::nullopt} : answer(command);
    if (given.code == 0) std::memset(reply, 0xEE, room);  // All of the room is the card's.
    const std::size_t fitting = std::min<std::size_t>(given.bytes.size(), room);
    std::copy_n(given.bytes.begin(), fitting, reply);
    *length = given.claimedLength.value_or(static_cast<std::uint32_t>(fitting));
    return given.code;
}

std::uint32_t HostileCard::reconnect() {
    card_.reset();
    return input_.flag() ? input_.oneOf(readerCodes) : 0;
}

HostileCard::Answer HostileCard::answer(const Bytes& command) {
    if (const auto served = serve(command)) return {0, *served, std::nullopt};
    if (honestLeft_ != 0) {
        --honestLeft_;
        return answerByDeed(Deed::Honest, command);
    }
    if (input_.atEnd()) {
        if (atEnd_ == AtEnd::Removed) return {removedCard, {}, std::nullopt};
        if (atEnd_ != AtEnd::Honest) input_.rewindTo(firstStep_);
    }
    return answerByDeed(static_cast<Deed>(input_.below(deedCount)), command);
}

HostileCard::Answer HostileCard::answerByDeed(Deed deed, const Bytes& command) {
    switch (deed) {
        case Deed::Honest:
            break;
        case Deed::ChangeByte: {
            Bytes bytes = card_.transmit(command);
            const std::size_t place = input_.word() % bytes.size();
            bytes[place] = static_cast<std::uint8_t>(bytes[place] ^ input_.byte());
            return {0, bytes, std::nullopt};
        }
        case Deed::OtherStatus: {
            Bytes bytes = card_.transmit(command);
            bytes.resize(bytes.size() - 2);
            return {0, withStatus(bytes, input_.word()), std::nullopt};
        }
        case Deed::OwnData:
            return {0, withStatus(input_.block(), 0x9000), std::nullopt};
        case Deed::OwnReply:
            return {0, input_.block(), std::nullopt};
        case Deed::MoreWaiting: {
            const Bytes data = input_.block();
            return {0, withStatus(data, 0x6100u | input_.byte()), std::nullopt};
        }
        case Deed::Fail: {
            const std::uint32_t code = input_.oneOf(readerCodes);
            const Bytes left = input_.block();
            return {code, left, input_.number()};
        }
        case Deed::ClaimLength:
            return {0, card_.transmit(command), input_.number()};
        case Deed::Cut: {
            Bytes bytes = card_.transmit(command);
            bytes.resize(std::min<std::size_t>(bytes.size(), input_.byte()));
            return {0, bytes, std::nullopt};
        }
        case Deed::LoseReply:
            card_.transmit(command);
            return {input_.oneOf(readerCodes), {}, 0u};
        case Deed::StateSize:
            return {0, withStatus(controlParameters(input_.number()), 0x9000), std::nullopt};
        case Deed::ServeFile:
            file_ = ServedFile{input_.longBlock(), false};
            if (const auto served = serve(command)) return {0, *served, std::nullopt};
            break;
        case Deed::HonestRun:
            honestLeft_ = input_.byte();
            break;
    }
    return {0, card_.transmit(command), std::nullopt};
}

// The next file that is selected is the one to serve, until another is selected.
std::optional<Bytes> HostileCard::serve(const Bytes& command) {
    if (!file_) return std::nullopt;
    if (!file_->isSelected) {
        if (!isSelectOfFile(command)) return std::nullopt;
        file_->isSelected = true;
        return withStatus(controlParameters(static_cast<std::uint32_t>(file_->content.size())),
                          0x9000);
    }
    if (!isRead(command)) {
        file_.reset();
        return std::nullopt;
    }
    const std::size_t offset =
        std::min<std::size_t>(command[2] << 8 | command[3], file_->content.size());
    const std::size_t count = std::min<std::size_t>(command[4], file_->content.size() - offset);
    const auto first = file_->content.begin() + static_cast<std::ptrdiff_t>(offset);
    return withStatus(Bytes(first, first + static_cast<std::ptrdiff_t>(count)), 0x9000);
}

}  // namespace fuzz
