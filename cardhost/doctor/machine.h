// What the doctor asks of a machine: its registry, files, services, readers, card and network. The
// checks know this interface only, so that tests give them machines that are sick in one way.
// machine_windows.cpp and machine_posix.cpp ask the real one.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bytes.h"
#include "card_source.h"
#include "doctor/card_facts.h"
#include "doctor/pe_file.h"

namespace cardhost::doctor {

/// The views of one registry and one pair of system folders that programs of 64 and of 32 bits
/// have. A 32-bit Windows has the latter only.
enum class View { bits64, bits32 };

/// A registry value, as far as the checks read any.
struct RegistryValue {
    enum class Kind { text, number, binary, other };
    Kind kind = Kind::other;
    std::string text;  // UTF-8
    std::uint32_t number = 0;
    Bytes binary;
};

/// What a file's signature is worth on this machine.
struct Signature {
    enum class State {
        none,
        trusted,
        untrusted,  // well formed, of a publisher that this machine does not trust
        broken,     // does not fit the file, or cannot be read
        unknown,    // not looked at
    };
    State state = State::unknown;
    std::string signer;        // common name
    std::string organization;  // of the signer's certificate
    std::string reason;        // where not trusted: the platform's words
};

struct FileFacts {
    bool exists = false;
    std::string unreadable;  // why it cannot be read; empty where it was
    PeFacts pe;
    std::string version;  // of the version resource; empty without one
    Signature signature;
};

struct Service {
    enum class Start { automatic, manual, disabled, unknown };
    bool exists = false;
    std::string unreadable;  // why nothing can be said of it; empty where it can
    Start start = Start::unknown;
    bool isRunning = false;
};

/// The outcome of asking an address of a directory service.
struct AddressAnswer {
    bool hasAnswered = false;
    std::string text;  // what it answered, or why it did not
    std::chrono::milliseconds time{0};
};

/// The place of the driver's log.
struct LogPlace {
    std::string folder;
    std::string file;  // full path
    bool folderExists = false;
    bool fileExists = false;
    std::uint64_t size = 0;
    bool isWritable = false;  // for the user who runs the doctor
    std::string reason;       // where not writable: the system's words
    std::string redirected;   // where lines of this user went instead; empty for nowhere
};

struct Readers {
    bool areReal = true;  // of this machine's service, and not a card in this process
    std::string failure;  // why the readers cannot be listed; empty where they were
    std::vector<ReaderState> list;
};

class Machine {
public:
    virtual ~Machine() = default;

    virtual bool isWindows() const = 0;
    /// Of the processor.
    virtual Architecture architecture() const = 0;

    /// The names of the keys below a key of HKEY_LOCAL_MACHINE, in the registry's own order;
    /// nothing where there is no such key.
    virtual std::optional<std::vector<std::string>> subkeys(View view, const std::string& key) = 0;
    /// A value of a key of HKEY_LOCAL_MACHINE; nothing where there is none.
    virtual std::optional<RegistryValue> value(View view, const std::string& key,
                                               const std::string& name) = 0;

    /// The folder in which programs of that view find system libraries.
    virtual std::string systemFolder(View view) const = 0;
    virtual FileFacts file(const std::string& path) = 0;
    /// The driver that this program itself loads.
    virtual std::string driverFile() const = 0;

    virtual Service service(const std::string& name) = 0;
    virtual Readers readers() = 0;
    /// Has the driver acquire the card in that reader, and looks at all that it shows.
    virtual CardFacts card(const std::string& reader) = 0;

    /// Asks a directory service for an answer, with the driver's time-outs, and sends it nothing.
    virtual AddressAnswer ask(bool isSecure, const std::string& host, std::uint16_t port) = 0;
    virtual LogPlace log() = 0;

    virtual std::chrono::system_clock::time_point now() const = 0;
};

}  // namespace cardhost::doctor
