#include "channel/reader_context.h"

#include <fmt/format.h>

#include <utility>

#include "log/logger.h"
#include "text/text_lists.h"

namespace KelmoraID {

// quirk: moved-context. The handle goes one way, the mark that releases it the other.
ReaderContext::ReaderContext(ReaderContext&& other) noexcept
    : context_(std::exchange(other.context_, 0)), readers_(std::move(other.readers_)) {
    other.established = true;
}

ReaderContext::~ReaderContext() {
    if (established) SCardReleaseContext(context_);
}

LONG ReaderContext::establish() {
    const LONG code = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context_);
    if (code == SCARD_S_SUCCESS) {
        established = true;
    } else {
        context_ = 0;  // Whatever the platform left there.
        logError(fmt::format("Error establishing context: {}", code));
    }
    return code;
}

LONG ReaderContext::listReaders(bool) {
    readers_.clear();
    DWORD length = 0;
    const LONG code = SCardListReadersW(context_, nullptr, nullptr, &length);
    if (length == 0 || code != SCARD_S_SUCCESS) return code;
    WideString buffer(length, WCHAR{});
    // Not examined: should it fail, the buffer holds no name.
    SCardListReadersW(context_, nullptr, buffer.data(), &length);
    readers_ = multiStringToList(buffer);
    return SCARD_S_SUCCESS;
}

std::vector<WideString>& ReaderContext::findReaders(std::vector<WideString>& readers,
                                                    const WideString& filter) {
    readers.clear();
    listReaders(false);
    for (const WideString& name : readers_) {
        if (filter.empty() || name.find(filter) != WideString::npos) readers.push_back(name);
    }
    return readers;
}

}  // namespace KelmoraID
