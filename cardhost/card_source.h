// The card behind the driver: a virtual one in this process, a recorded one, or one in a reader.
// Each way the program decides it by the winscard library that it loads ahead of the driver, whose
// import of the same name then resolves to that one.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bytes.h"
#include "trace.h"

namespace cardhost {

struct CardChoice {
    int virtualType = 3;              // the generation of a virtual card
    bool isChosen = false;            // the command line names one that is in no reader
    std::filesystem::path stateFile;  // where that card's tries are kept; empty for nowhere
    /// A reader's name instead, or "" for the first with such a card.
    std::optional<std::string> reader;
    std::filesystem::path recording;  // a recorded conversation to replay instead; empty for none
    int takenFor = 0;  // the type whose ATR the driver is shown; 0 for the card's own
};

/// A recorded conversation; throws a Failure (file) with the number of the line if it is none.
recording::Conversation readRecording(const std::filesystem::path& file);

/// A reader and what is in it.
struct ReaderState {
    std::string name;
    LONG status;  // of the connection: 0 with a card
    Bytes atr;
};

/// What is in a reader, in words.
std::string contentText(const ReaderState& reader);

/// All readers of the machine's PC/SC service. Throws a Failure (notFound) if there is none to ask.
std::vector<ReaderState> readersOf(const std::filesystem::path& driverFolder);

/// A connection to one card, held in one transaction as the platform holds it, until the object
/// ends. The card is left as it is.
class ConnectedCard {
public:
    /// Throws a Failure (notFound) if there is no such card.
    ConnectedCard(const CardChoice& choice, const std::filesystem::path& driverFolder,
                  const Trace& trace);
    ~ConnectedCard();
    ConnectedCard(const ConnectedCard&) = delete;
    ConnectedCard& operator=(const ConnectedCard&) = delete;

    SCARDCONTEXT context() const;
    SCARDHANDLE handle() const;
    const std::string& reader() const;
    /// Whether the card still answers commands, whatever its answer is.
    bool answers() const;
    const Bytes& atr() const;
    /// The ATR that the driver is shown.
    const Bytes& shownAtr() const;
    /// Whether it is one in this process, virtual or recorded.
    bool isInProcess() const;
    /// Whether it is a recorded one.
    bool isRecording() const;
    /// Whether that call can be made: on any card but a recorded one that was never asked so.
    bool hasCall(const std::string& call) const;
    /// Throws a Failure (recording) if a recorded card was asked what its recording has not.
    void checkRecording() const;
    /// Sends a command past the driver.
    recording::Reply exchange(ByteView command) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace cardhost
