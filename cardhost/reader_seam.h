// A middleman between the driver and a real reader: the seam of the double of winscard, each call
// handed on to the real library and each exchange shown to a trace.
#pragma once

#include "trace.h"
#include "virtual_card/winscard/card_seam.h"
#include "winscard_calls.h"

namespace cardhost {

class ReaderSeam {
public:
    ReaderSeam(const WinscardCalls& real, const Trace& trace);
    ReaderSeam(const ReaderSeam&) = delete;
    ReaderSeam& operator=(const ReaderSeam&) = delete;

    const CardSeam* seam() const { return &seam_; }

private:
    LONG transmit(SCARDHANDLE card, DWORD protocol, ByteView command, std::uint8_t* reply,
                  std::uint32_t* replyLength) const;

    CardSeam seam_{};
    const WinscardCalls& real_;
    const Trace& trace_;
};

}  // namespace cardhost
