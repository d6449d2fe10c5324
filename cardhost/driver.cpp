#include "driver.h"

#include <fmt/format.h>

#include "card_source.h"
#include "memory.h"

namespace cardhost {

namespace {

constexpr DWORD largestProperty = 512;

/// A directory name as an entry point takes it: NULL for the root.
LPSTR directoryArgument(std::string& directory) {
    return directory.empty() ? nullptr : directory.data();
}

std::string shownPath(const std::string& directory, const std::string& name) {
    return directory.empty() ? name : directory + "/" + name;
}

}  // namespace

Refusal::Refusal(const std::string& call, DWORD status)
    : Failure(ExitCode::refused,
              fmt::format("the driver refused {}: {}", call, statusText(status))),
      entryPoint_(call.substr(0, call.find(' '))),
      status_(status) {}

void refuse(const std::string& entryPoint, DWORD status) {
    throw Refusal(entryPoint, status);
}

Driver::Driver(const std::filesystem::path& file)
    : file_(file),
      library_(file),
      acquireContext_(library_.get<PFN_CARD_ACQUIRE_CONTEXT>("CardAcquireContext")) {}

Acquisition::Acquisition(const Driver& driver, ConnectedCard& card, const Trace& trace)
    : card_(card), trace_(trace), atr_(card.shownAtr()), cardName_(wide("FINEID")) {
    record_.dwVersion = CARD_DATA_VERSION_SEVEN;
    record_.pbAtr = atr_.data();
    record_.cbAtr = static_cast<DWORD>(atr_.size());
    record_.pwszCardName = cardName_.data();
    record_.pfnCspAlloc = allocate;
    record_.pfnCspReAlloc = reallocate;
    record_.pfnCspFree = release;
    cache_.offerTo(record_);
    record_.hSCardCtx = card.context();
    record_.hScard = card.handle();
    require("CardAcquireContext", driver.acquireContext(), DWORD{0});
    isOpen_ = true;
}

Acquisition::~Acquisition() {
    try {
        close();
    } catch (const Failure&) {
        // The command has its own outcome by now; there is nothing more to do with the record.
    }
}

// What the driver says to a card that is gone reads like many another failure of its.
void Acquisition::requireCard(const std::string& shown, DWORD status) const {
    // These come from the card itself.
    if (status == static_cast<DWORD>(SCARD_W_WRONG_CHV) ||
        status == static_cast<DWORD>(SCARD_W_CHV_BLOCKED) || card_.answers()) {
        return;
    }
    throw Failure(ExitCode::notFound,
                  fmt::format("the card in {} no longer answers: {} ended with {}", card_.reader(),
                              shown, statusText(status)));
}

void Acquisition::close() {
    if (!isOpen_) return;
    isOpen_ = false;
    require("CardDeleteContext", record_.pfnCardDeleteContext);
}

Bytes Acquisition::readFile(const std::string& directory, const std::string& name) {
    std::string directoryName = directory;
    std::string fileName = name;
    PBYTE data = nullptr;
    DWORD length = 0;
    require("CardReadFile " + shownPath(directory, name), record_.pfnCardReadFile,
            directoryArgument(directoryName), fileName.data(), DWORD{0}, &data, &length);
    return takeBlock(data, length);
}

CARD_FILE_INFO Acquisition::fileInfo(const std::string& directory, const std::string& name) {
    std::string directoryName = directory;
    std::string fileName = name;
    CARD_FILE_INFO info{};
    info.dwVersion = 1;
    require("CardGetFileInfo " + shownPath(directory, name), record_.pfnCardGetFileInfo,
            directoryArgument(directoryName), fileName.data(), &info);
    return info;
}

std::vector<std::string> Acquisition::fileNames(const std::string& directory) {
    std::string directoryName = directory;
    LPSTR names = nullptr;
    DWORD length = 0;
    require("CardEnumFiles " + (directory.empty() ? "of the root" : directory),
            record_.pfnCardEnumFiles, directoryArgument(directoryName), &names, &length, DWORD{0});
    const Bytes multiString = takeBlock(reinterpret_cast<PBYTE>(names), length);
    std::vector<std::string> result;
    std::string name;
    for (const std::uint8_t byte : multiString) {
        if (byte != 0) {
            name += static_cast<char>(byte);
        } else if (name.empty()) {
            break;
        } else {
            result.push_back(std::exchange(name, {}));
        }
    }
    return result;
}

Bytes Acquisition::property(const std::string& name, DWORD flags) {
    const WideText wideName = wide(name);
    Bytes answer(largestProperty);
    DWORD length = 0;
    const std::string shown = flags == 0
                                  ? fmt::format("CardGetProperty \"{}\"", name)
                                  : fmt::format("CardGetProperty \"{}\", flags {}", name, flags);
    require(shown, record_.pfnCardGetProperty, wideName.c_str(), answer.data(), largestProperty,
            &length, flags);
    answer.resize(std::min<std::size_t>(length, answer.size()));
    return answer;
}

PIN_ID Acquisition::pinOfContainer(BYTE container) {
    const WideText name = wide("PIN Identifier");
    PIN_ID pin = 0;
    DWORD length = 0;
    require(fmt::format("CardGetContainerProperty \"PIN Identifier\" of container {}", container),
            record_.pfnCardGetContainerProperty, container, name.c_str(),
            reinterpret_cast<PBYTE>(&pin), DWORD{sizeof(pin)}, &length, DWORD{0});
    return pin;
}

Bytes Acquisition::publicKeyBlob(BYTE container) {
    CONTAINER_INFO info{};
    info.dwVersion = 1;
    require(fmt::format("CardGetContainerInfo of container {}", container),
            record_.pfnCardGetContainerInfo, container, DWORD{0}, &info);
    const Bytes keyExchange = takeBlock(info.pbKeyExPublicKey, info.cbKeyExPublicKey);
    const Bytes signature = takeBlock(info.pbSigPublicKey, info.cbSigPublicKey);
    return keyExchange.empty() ? signature : keyExchange;
}

}  // namespace cardhost
