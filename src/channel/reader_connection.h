// A connection to the card in a reader, for work without the platform's stack. Held ready, like
// ReaderContext.
#pragma once

#include <string>

#include "bytes/byte_vector.h"
#include "platform/wide_text.h"

namespace KelmoraID {

class ReaderConnection {
public:
    ReaderConnection() = default;
    /// The disconnect: there is no other. Leaves the card as it is, never resets it.
    ~ReaderConnection();
    ReaderConnection(const ReaderConnection&) = delete;
    ReaderConnection& operator=(const ReaderConnection&) = delete;

    /// Stores the name and its UTF-8 form.
    void setReaderName(const WideString& name);
    /// Connects, shared, over T=0 or T=1. @return 0 or the PC/SC code; a removed card is not logged
    LONG connect(SCARDCONTEXT hContext);

    SCARDHANDLE handle() const { return hCard; }
    DWORD protocol() const { return activeProtocol_; }
    const std::string& readerNameUtf8() const { return nameUtf8_; }

private:
    SCARDHANDLE hCard = 0;
    DWORD activeProtocol_ = 0;
    [[maybe_unused]] WORD state_ = 0;  // Nothing sets it, but it is part of the record.
    WideString name_;
    std::string nameUtf8_;
    // Nothing fills these either; a connection has room for them all the same.
    ByteVector bytes_[3];
    std::string texts_[2];
    bool flag_ = false;
};

}  // namespace KelmoraID
