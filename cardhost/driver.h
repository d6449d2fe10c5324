// A minidriver, loaded as the platform loads it, and one card acquired by it.
#pragma once

#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "bytes.h"
#include "card_source.h"
#include "exit_codes.h"
#include "file_cache.h"
#include "os.h"
#include "status_names.h"
#include "trace.h"

namespace cardhost {

/// The library and its one export.
class Driver {
public:
    /// Throws a Failure (notFound) if the file cannot be loaded or is no minidriver.
    explicit Driver(const std::filesystem::path& file);

    const std::filesystem::path& file() const { return file_; }
    PFN_CARD_ACQUIRE_CONTEXT acquireContext() const { return acquireContext_; }

private:
    std::filesystem::path file_;
    os::Library library_;
    PFN_CARD_ACQUIRE_CONTEXT acquireContext_;
};

/// CARD_DATA from CardAcquireContext to CardDeleteContext. Every operation throws a Failure
/// (refused) that names the entry point and the status if the driver refuses, unless it says
/// otherwise, one (notFound) if the card has stopped answering by then, and one (recording) if a
/// recorded card was asked what its recording has not.
class Acquisition {
public:
    Acquisition(const Driver& driver, ConnectedCard& card, const Trace& trace);
    ~Acquisition();
    Acquisition(const Acquisition&) = delete;
    Acquisition& operator=(const Acquisition&) = delete;

    /// Calls an entry point of the table and gives its status. `shown` is the call as a trace shows
    /// it, and begins with the entry point's name.
    template <typename EntryPoint, typename... Arguments>
    DWORD call(const std::string& shown, EntryPoint entryPoint, Arguments&&... arguments);

    /// The same, but a status other than 0 is a Failure.
    template <typename EntryPoint, typename... Arguments>
    void require(const std::string& shown, EntryPoint entryPoint, Arguments&&... arguments);

    CARD_DATA& record() { return record_; }

    /// The whole content of a virtual file; an empty directory name means the root.
    Bytes readFile(const std::string& directory, const std::string& name);

    /// What the driver says of a file without reading it.
    CARD_FILE_INFO fileInfo(const std::string& directory, const std::string& name);

    /// The names of the files in a directory.
    std::vector<std::string> fileNames(const std::string& directory);

    /// A card property into a buffer of at most 512 bytes.
    Bytes property(const std::string& name, DWORD flags = 0);

    /// A card property that is a published record or a number.
    template <typename Value>
    Value propertyAs(const std::string& name, DWORD flags = 0);

    /// The PIN that a container's key wants.
    PIN_ID pinOfContainer(BYTE container);

    /// The public key of a container, as the platform's key blob.
    Bytes publicKeyBlob(BYTE container);

    /// CardDeleteContext, ahead of the object's end; nothing may be called after it.
    void close();

private:
    void requireCard(const std::string& shown, DWORD status) const;

    FileCache cache_;
    const ConnectedCard& card_;
    const Trace& trace_;
    Bytes atr_;
    WideText cardName_;
    CARD_DATA record_{};
    bool isOpen_ = false;
};

/// An entry point's own refusal.
class Refusal : public Failure {
public:
    Refusal(const std::string& call, DWORD status);

    /// Its name, without the arguments.
    const std::string& entryPoint() const { return entryPoint_; }
    DWORD status() const { return status_; }

private:
    std::string entryPoint_;
    DWORD status_;
};

/// Throws the Refusal of an entry point's status.
[[noreturn]] void refuse(const std::string& entryPoint, DWORD status);

template <typename EntryPoint, typename... Arguments>
DWORD Acquisition::call(const std::string& shown, EntryPoint entryPoint, Arguments&&... arguments) {
    if (entryPoint == nullptr) {
        throw Failure(ExitCode::refused, "the driver offers no " +
                                             shown.substr(0, shown.find(' ')) + " for this card");
    }
    trace_.entryPoint(shown);
    const DWORD status = entryPoint(&record_, std::forward<Arguments>(arguments)...);
    trace_.result(status);
    card_.checkRecording();
    if (status != 0) requireCard(shown, status);
    return status;
}

template <typename EntryPoint, typename... Arguments>
void Acquisition::require(const std::string& shown, EntryPoint entryPoint,
                          Arguments&&... arguments) {
    const DWORD status = call(shown, entryPoint, std::forward<Arguments>(arguments)...);
    if (status != 0) refuse(shown, status);
}

template <typename Value>
Value Acquisition::propertyAs(const std::string& name, DWORD flags) {
    const Bytes bytes = property(name, flags);
    Value value{};
    if (bytes.size() != sizeof(value)) {
        throw Failure(ExitCode::refused, "the driver answers \"" + name + "\" with " +
                                             std::to_string(bytes.size()) + " bytes instead of " +
                                             std::to_string(sizeof(value)));
    }
    std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
}

}  // namespace cardhost
