// A desktop with an ordinary window in front, and the companion application's library on it: what
// the driver looks at before it shows the application's dialog.
#pragma once

#include "dialog/code_entry_script.h"

namespace boundary {

class Desktop {
public:
    /// Loads the library beside this program and clears its script; names it in the settings.
    Desktop();
    ~Desktop();
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    /// Waits until a window is in front; false if none comes.
    static bool isUp();

    /// What the dialog is told; null if the library cannot be loaded.
    CodeEntryScript* script = nullptr;
    /// The same for a thread of its own.
    static CodeEntryScript* scriptOfThisThread() { return find_(); }

private:
    static inline CodeEntryScript* (*find_)() = nullptr;
    void* library_;
};

}  // namespace boundary
