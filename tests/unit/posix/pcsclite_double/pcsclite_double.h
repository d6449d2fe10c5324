// What a test sets of the double of PC/SC lite's library, and what it sees of the calls.
#pragma once

struct PcscliteDouble {
    // Set by the test.
    long code = 0;                  ///< of every call
    const char* readers = "";       ///< the multi-string of the readers
    unsigned long readersSize = 1;  ///< with the last terminator
    unsigned long state = 0;
    unsigned long protocol = 0;
    unsigned char reply[4] = {};
    unsigned long replyLength = 0;
    // Seen by the test.
    unsigned long context = 0;
    unsigned long card = 0;
    char reader[128] = "";
    unsigned long share = 0;
    unsigned long protocols = 0;
    unsigned long disposition = 0;
    unsigned long pciProtocol = 0;
    unsigned long pciLength = 0;
    unsigned long sentLength = 0;
    unsigned char sent[4] = {};
    unsigned long room = 0;
};

/// Exported by the double as "pcscliteDouble".
using PcscliteDoubleState = PcscliteDouble* (*)();
