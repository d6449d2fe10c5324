// A minidriver that reaches no card: it takes every record, or refuses it where its environment
// says so, and sends no command. What cardhost makes of a driver whose winscard is not the one that
// it listens at.
#include <cstdlib>

#include "platform/minidriver.h"

namespace {

DWORD WINAPI deleteContext(PCARD_DATA) {
    return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) DWORD WINAPI CardAcquireContext(PCARD_DATA data,
                                                                                  DWORD) {
    const char* status = std::getenv("DEAF_DRIVER_STATUS");
    data->pfnCardDeleteContext = deleteContext;
    return status == nullptr ? 0 : static_cast<DWORD>(std::strtoul(status, nullptr, 16));
}
