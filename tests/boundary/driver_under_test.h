// The driver under test and its surroundings, as far as the suite knows them: the export, what
// stands behind the card seam, the log file and the two settings. Natively the driver is linked in,
// with its sanitizers; on Windows it is the DLL beside the program.
#pragma once

#include <string>

#include "platform/minidriver.h"
#include "virtual_card/winscard/card_seam.h"

namespace boundary {

/// CardAcquireContext, found by name where the driver is a DLL.
PFN_CARD_ACQUIRE_CONTEXT acquireContextOfDriver();

/// Puts a card behind the SCard calls of the driver; null takes it away.
void putBehindTheSeam(const CardSeam* seam);
#ifndef _WIN32
const CardSeam* behindTheSeam();
#endif

/// Writes one of the two settings; an empty text takes it away.
enum class Setting { serviceAddresses, companionStartCommand };
void writeSetting(Setting setting, const std::string& value);

/// Tells the leak checker, where there is one, of an object that the driver leaves behind.
void leftBehind(const void* object);

/// The driver once more, with data of its own: the DLL under another name, natively the shared
/// library. Loaded from construction on, for the card that is behind the seam then.
class LibraryCopy {
public:
    LibraryCopy();
    ~LibraryCopy();
    LibraryCopy(const LibraryCopy&) = delete;
    LibraryCopy& operator=(const LibraryCopy&) = delete;

    /// The export; the program ends where the copy could not be loaded.
    PFN_CARD_ACQUIRE_CONTEXT acquireContext() const;
    static bool isLoaded();

private:
    void* module_;
};

/// The folder of this program, where test libraries lie.
std::string programFolder();

}  // namespace boundary
