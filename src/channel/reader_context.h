// The PC/SC context and its readers, for work with a card without the platform's stack. Held ready:
// the minidriver path gets its handles from the platform and calls nothing of this.
#pragma once

#include <vector>

#include "platform/wide_text.h"

namespace KelmoraID {

class ReaderContext {
public:
    ReaderContext() = default;
    /// Takes the handle, but not its ownership: afterwards the new object is not established and
    /// the source is, with a handle of 0. So the new object never releases the handle.
    ReaderContext(ReaderContext&& other) noexcept;
    /// Releases the context if established.
    ~ReaderContext();
    ReaderContext(const ReaderContext&) = delete;
    ReaderContext& operator=(const ReaderContext&) = delete;
    ReaderContext& operator=(ReaderContext&&) = delete;

    /// Establishes the context. @return 0 or the PC/SC code, which is also logged at ERROR level
    LONG establish();
    SCARDCONTEXT getContext() const { return context_; }
    /// Refreshes the reader list. @param ignored has no visible effect
    /// @return the PC/SC code of the length query, or 0
    LONG listReaders(bool ignored);
    /// The readers whose name holds the filter, all of them for an empty filter.
    std::vector<WideString>& findReaders(std::vector<WideString>& readers,
                                         const WideString& filter);

    bool isEstablished() const { return established; }
    const std::vector<WideString>& readerNames() const { return readers_; }

private:
    SCARDCONTEXT context_ = 0;
    bool established = false;
    std::vector<WideString> readers_;
};

}  // namespace KelmoraID
