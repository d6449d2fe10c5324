#include "card_source.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>

#include <fmt/format.h>

#include "card_types.h"
#include "doctor/printable.h"
#include "exit_codes.h"
#include "files.h"
#include "os.h"
#include "reader_seam.h"
#include "recording/parser.h"
#include "recording/replay_card.h"
#include "status_names.h"
#include "virtual_card/winscard/virtual_reader.h"
#include "winscard_calls.h"

namespace cardhost {

namespace {

constexpr DWORD anyProtocol = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;
constexpr std::size_t longestAtr = 36;
constexpr std::size_t longestReply = 258;
constexpr std::size_t longestState = 65536;

[[noreturn]] void notFound(const std::string& what, LONG status) {
    throw Failure(ExitCode::notFound,
                  fmt::format("{}: {}", what, statusText(static_cast<DWORD>(status))));
}

/// A context of PC/SC, released with the object.
class PcscContext {
public:
    explicit PcscContext(const WinscardCalls& calls) : calls_(calls) {
        const LONG status = calls_.establishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context_);
        if (status != SCARD_S_SUCCESS) notFound("no smart-card service answers", status);
    }
    ~PcscContext() { calls_.releaseContext(context_); }
    PcscContext(const PcscContext&) = delete;
    PcscContext& operator=(const PcscContext&) = delete;

    SCARDCONTEXT context() const { return context_; }

    std::vector<std::string> readerNames() const {
        DWORD length = 0;
        LONG status = calls_.listReaders(context_, nullptr, nullptr, &length);
        WideText names(length, WCHAR{0});
        if (status == SCARD_S_SUCCESS) {
            status = calls_.listReaders(context_, nullptr, names.data(), &length);
        }
        if (status == SCARD_E_NO_READERS_AVAILABLE) return {};
        if (status != SCARD_S_SUCCESS) notFound("the readers cannot be listed", status);
        names.resize(std::min<std::size_t>(length, names.size()));
        std::vector<std::string> result;
        for (std::size_t start = 0; start < names.size() && names[start] != 0;) {
            const std::size_t end = std::min(names.find(WCHAR{0}, start), names.size());
            result.push_back(utf8(std::basic_string_view<WCHAR>(names).substr(start, end - start)));
            start = end + 1;
        }
        return result;
    }

private:
    const WinscardCalls& calls_;
    SCARDCONTEXT context_ = 0;
};

/// A connection to the card in a reader, ended with the object; the card is left as it is.
class Connection {
public:
    Connection(const WinscardCalls& calls, SCARDCONTEXT context, const std::string& reader)
        : calls_(calls) {
        status_ = calls_.connect(context, wide(reader).c_str(), SCARD_SHARE_SHARED, anyProtocol,
                                 &card_, &protocol_);
        if (status_ != SCARD_S_SUCCESS) card_ = 0;
    }
    ~Connection() {
        if (isHeld_) calls_.endTransaction(card_, SCARD_LEAVE_CARD);
        if (card_ != 0) calls_.disconnect(card_, SCARD_LEAVE_CARD);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    LONG status() const { return status_; }
    SCARDHANDLE card() const { return card_; }

    /// Holds the card until the end of the object, as the platform does around its calls.
    void hold() {
        const LONG status = calls_.beginTransaction(card_);
        if (status != SCARD_S_SUCCESS) notFound("the card cannot be held", status);
        isHeld_ = true;
    }

    /// Asks for a response that no command has left: any two bytes are an answer. The service may
    /// take a while to notice that a card is gone, so its own word does not do.
    bool answers() const {
        constexpr BYTE getResponse[] = {0x00, 0xC0, 0x00, 0x00, 0x00};  // ISO/IEC 7816-4, 7.6.1
        const auto reply = exchange(getResponse);
        return reply.failure == 0 && reply.bytes.size() >= 2;
    }

    /// One command past the driver.
    recording::Reply exchange(ByteView command) const {
        const SCARD_IO_REQUEST request{protocol_, sizeof(SCARD_IO_REQUEST)};
        Bytes reply(longestReply);
        auto length = static_cast<DWORD>(reply.size());
        const LONG status =
            calls_.transmit(card_, &request, command.data(), static_cast<DWORD>(command.size()),
                            nullptr, reply.data(), &length);
        if (status != SCARD_S_SUCCESS) return {{}, static_cast<std::uint32_t>(status), {}};
        reply.resize(std::min<std::size_t>(length, reply.size()));
        return {reply, 0, {}};
    }

    recording::Protocol protocol() const {
        return protocol_ == SCARD_PROTOCOL_T0 ? recording::Protocol::t0 : recording::Protocol::t1;
    }

    /// Empty if the card does not tell.
    Bytes atr() const {
        std::array<BYTE, longestAtr> atr{};
        auto length = static_cast<DWORD>(atr.size());
        DWORD state = 0;
        DWORD protocol = 0;
        const LONG status =
            calls_.status(card_, nullptr, nullptr, &state, &protocol, atr.data(), &length);
        if (status != SCARD_S_SUCCESS) return {};
        return Bytes(atr.begin(), atr.begin() + std::min<std::ptrdiff_t>(
                                                    static_cast<std::ptrdiff_t>(length),
                                                    static_cast<std::ptrdiff_t>(atr.size())));
    }

private:
    const WinscardCalls& calls_;
    SCARDHANDLE card_ = 0;
    DWORD protocol_ = 0;
    LONG status_ = 0;
    bool isHeld_ = false;
};

/// A virtual card behind the seam. With a state file its tries left go on from where the last
/// command left them.
class VirtualSource {
public:
    VirtualSource(const CardChoice& choice, const Trace& trace)
        : reader_(*virtual_card::findGeneration(choice.virtualType)), stateFile_(choice.stateFile) {
        reader_.onCommand = [&trace](ByteView command) { trace.command(command); };
        reader_.onExchange = [&trace](const virtual_card::Exchange& exchange) {
            trace.reply({exchange.reply, exchange.code, {}});
        };
        std::error_code ignored;
        if (stateFile_.empty() || !std::filesystem::exists(stateFile_, ignored)) return;
        const Bytes state = contentOf(stateFile_, longestState);
        try {
            reader_.card().loadState(std::string(state.begin(), state.end()));
        } catch (const std::runtime_error& error) {
            throw Failure(ExitCode::file, fmt::format("{} is no state of this virtual card: {}",
                                                      shown(stateFile_), error.what()));
        }
    }
    ~VirtualSource() {
        if (stateFile_.empty()) return;
        try {
            writeFile(stateFile_, reader_.card().saveState());
        } catch (const Failure& failure) {
            fmt::print(stderr, "cardhost: {}\n", failure.what());
        }
    }
    VirtualSource(const VirtualSource&) = delete;
    VirtualSource& operator=(const VirtualSource&) = delete;

    const CardSeam* seam() const { return reader_.seam(); }

private:
    virtual_card::VirtualReader reader_;
    std::filesystem::path stateFile_;
};

/// A recorded card behind the seam.
class RecordedSource {
public:
    RecordedSource(const std::filesystem::path& file, const Trace& trace)
        : conversation_(readRecording(file)), card_(conversation_) {
        card_.onExchange = [&trace](ByteView command, const recording::Reply& reply) {
            trace.command(command);
            trace.reply(reply);
        };
        trace.onCall([this](const std::string& call) { card_.beginCall(call); });
    }
    RecordedSource(const RecordedSource&) = delete;
    RecordedSource& operator=(const RecordedSource&) = delete;

    const CardSeam* seam() const { return card_.seam(); }
    const std::string& mismatch() const { return card_.mismatch(); }
    bool hasCall(const std::string& call) const {
        return std::any_of(conversation_.entries.begin(), conversation_.entries.end(),
                           [&](const recording::Entry& entry) {
                               const auto* begun = std::get_if<recording::Call>(&entry);
                               return begun != nullptr && begun->text == call;
                           });
    }

private:
    recording::Conversation conversation_;
    recording::ReplayCard card_;
};

std::filesystem::path seamLibrary() {
    return os::seamWinscard(os::programFolder());
}

void setSeam(const os::Library& library, const CardSeam* seam) {
    library.get<SetCardSeamFunction>("SetCardSeam")(seam);
}

ReaderState stateOf(const WinscardCalls& calls, const PcscContext& pcsc, const std::string& name) {
    const Connection connection(calls, pcsc.context(), name);
    return {name, connection.status(),
            connection.status() == SCARD_S_SUCCESS ? connection.atr() : Bytes()};
}

/// The first reader with a FINEID card in it. A machine may have others ahead of it, those of
/// virtual smart cards among them: standard error says which were passed over, and why.
std::string readerWithOurCard(const WinscardCalls& calls, const PcscContext& pcsc,
                              const std::vector<std::string>& names) {
    std::vector<std::string> passedOver;
    for (const std::string& name : names) {
        const ReaderState state = stateOf(calls, pcsc, name);
        if (generationOf(state.atr) != nullptr) {
            for (const std::string& other : passedOver) {
                fmt::print(stderr, "cardhost: passed over {}\n", doctor::printable(other));
            }
            return name;
        }
        passedOver.push_back(fmt::format("{}: {}", name, contentText(state)));
    }
    throw Failure(ExitCode::notFound, fmt::format("no reader has a FINEID card in it; {}",
                                                  fmt::join(passedOver, "; ")));
}

std::string chosenReader(const WinscardCalls& calls, const PcscContext& pcsc,
                         const std::optional<std::string>& wanted) {
    const auto names = pcsc.readerNames();
    if (names.empty()) throw Failure(ExitCode::notFound, "no reader is connected");
    if (!wanted) return names.front();  // The one of the card in this process.
    if (wanted->empty()) return readerWithOurCard(calls, pcsc, names);
    if (std::find(names.begin(), names.end(), *wanted) == names.end()) {
        throw Failure(ExitCode::notFound, fmt::format("no reader '{}'; there are: {}", *wanted,
                                                      fmt::join(names, ", ")));
    }
    return *wanted;
}

}  // namespace

std::string contentText(const ReaderState& reader) {
    if (reader.status == SCARD_E_NO_SMARTCARD || reader.status == SCARD_W_REMOVED_CARD) {
        return "no card";
    }
    if (reader.status != SCARD_S_SUCCESS) return statusText(static_cast<DWORD>(reader.status));
    const CardGeneration* generation = generationOf(reader.atr);
    return generation == nullptr ? "a card that is no known FINEID card"
                                 : fmt::format("FINEID card of type {}, {}", generation->type,
                                               generation->description);
}

recording::Conversation readRecording(const std::filesystem::path& file) {
    const Bytes text = contentOf(file, recording::largestText);
    try {
        return recording::parse(
            std::string_view(reinterpret_cast<const char*>(text.data()), text.size()));
    } catch (const recording::FormatError& error) {
        throw Failure(ExitCode::file, fmt::format("{}, {}", shown(file), error.what()));
    }
}

std::vector<ReaderState> readersOf(const std::filesystem::path& driverFolder) {
    const os::Library library(os::realWinscard(driverFolder));
    const WinscardCalls calls(library);
    const PcscContext pcsc(calls);
    std::vector<ReaderState> readers;
    for (const std::string& name : pcsc.readerNames()) {
        readers.push_back(stateOf(calls, pcsc, name));
    }
    return readers;
}

/// In the order of their making: each stands on those ahead of it.
struct ConnectedCard::Parts {
    explicit Parts(const Trace& traceOfAll) : trace(traceOfAll) {}

    const Trace& trace;
    // The library whose name the driver's import resolves to is loaded first.
    std::optional<os::Library> seamLibrary;
    std::optional<os::Library> realLibrary;
    std::optional<VirtualSource> virtualSource;
    std::optional<RecordedSource> recordedSource;
    std::optional<WinscardCalls> calls;
    std::optional<ReaderSeam> readerSeam;
    std::optional<PcscContext> pcsc;
    std::optional<Connection> connection;
    std::string reader;
    Bytes atr;
    Bytes shownAtr;

    ~Parts() {
        connection.reset();
        pcsc.reset();
        if (seamLibrary) setSeam(*seamLibrary, nullptr);
    }
};

ConnectedCard::ConnectedCard(const CardChoice& choice, const std::filesystem::path& driverFolder,
                             const Trace& trace)
    : parts_(std::make_unique<Parts>(trace)) {
    Parts& parts = *parts_;
    std::error_code ignored;
    if (!choice.reader || trace.isOn() ||
        (trace.isUseful() && std::filesystem::exists(seamLibrary(), ignored))) {
        parts.seamLibrary.emplace(seamLibrary());
    }
    if (choice.reader) {
        parts.realLibrary.emplace(os::realWinscard(driverFolder));
        parts.calls.emplace(*parts.realLibrary);
        if (parts.seamLibrary) {
            parts.readerSeam.emplace(*parts.calls, trace);
            setSeam(*parts.seamLibrary, parts.readerSeam->seam());
        }
    } else if (!choice.recording.empty()) {
        parts.recordedSource.emplace(choice.recording, trace);
        setSeam(*parts.seamLibrary, parts.recordedSource->seam());
        parts.calls.emplace(*parts.seamLibrary);
    } else {
        parts.virtualSource.emplace(choice, trace);
        setSeam(*parts.seamLibrary, parts.virtualSource->seam());
        parts.calls.emplace(*parts.seamLibrary);
    }
    parts.pcsc.emplace(*parts.calls);
    parts.reader = chosenReader(*parts.calls, *parts.pcsc, choice.reader);
    parts.connection.emplace(*parts.calls, parts.pcsc->context(), parts.reader);
    if (parts.connection->status() != SCARD_S_SUCCESS) {
        notFound(fmt::format("no card answers in {}", parts.reader), parts.connection->status());
    }
    parts.connection->hold();
    parts.atr = parts.connection->atr();
    if (parts.atr.empty()) throw Failure(ExitCode::notFound, "the card does not tell its ATR");
    parts.shownAtr = parts.atr;
    if (choice.takenFor != 0) {
        const ByteView atr = generationOfType(choice.takenFor)->atr;
        parts.shownAtr.assign(atr.begin(), atr.end());
    }
    trace.begin(parts.atr, parts.connection->protocol());
}

ConnectedCard::~ConnectedCard() = default;

SCARDCONTEXT ConnectedCard::context() const {
    return parts_->pcsc->context();
}

SCARDHANDLE ConnectedCard::handle() const {
    return parts_->connection->card();
}

const std::string& ConnectedCard::reader() const {
    return parts_->reader;
}

bool ConnectedCard::answers() const {
    // A card in this process cannot go.
    return isInProcess() || parts_->connection->answers();
}

const Bytes& ConnectedCard::shownAtr() const {
    return parts_->shownAtr;
}

bool ConnectedCard::isInProcess() const {
    return parts_->virtualSource || parts_->recordedSource;
}

bool ConnectedCard::isRecording() const {
    return parts_->recordedSource.has_value();
}

bool ConnectedCard::hasCall(const std::string& call) const {
    return !parts_->recordedSource || parts_->recordedSource->hasCall(call);
}

void ConnectedCard::checkRecording() const {
    if (parts_->recordedSource && !parts_->recordedSource->mismatch().empty()) {
        throw Failure(ExitCode::recording, parts_->recordedSource->mismatch());
    }
}

recording::Reply ConnectedCard::exchange(ByteView command) const {
    // A reader's own library is not what the trace listens at.
    const bool isTracedHere = parts_->readerSeam.has_value();
    if (isTracedHere) parts_->trace.command(command);
    recording::Reply reply = parts_->connection->exchange(command);
    if (isTracedHere) parts_->trace.reply(reply);
    checkRecording();
    return reply;
}

const Bytes& ConnectedCard::atr() const {
    return parts_->atr;
}

}  // namespace cardhost
