// What --trace shows on standard error: the entry points as they are called and the commands and
// replies that each of them causes, with the bytes of PINs masked.
#pragma once

#include <string>

#include "bytes.h"
#include "platform/minidriver.h"

namespace cardhost {

/// The line of a command: its name and its bytes. What follows the five header bytes of a command
/// that carries a PIN (VERIFY, CHANGE REFERENCE DATA, RESET RETRY COUNTER) is shown as **.
std::string commandLine(ByteView command);

/// The line of a reply, or of the status with which the transmission failed.
std::string replyLine(LONG status, ByteView reply);

class Trace {
public:
    explicit Trace(bool isOn) : isOn_(isOn) {}

    bool isOn() const { return isOn_; }

    void entryPoint(const std::string& call) const;
    void result(DWORD status) const;
    void command(ByteView command) const;
    void reply(LONG status, ByteView reply) const;

private:
    void print(const std::string& line) const;

    bool isOn_;
};

}  // namespace cardhost
