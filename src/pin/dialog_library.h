// The handle of the dialog library.
#pragma once

#include "platform/wide_text.h"
#include "platform/win32.h"

namespace KelmoraID {

/// Loads the library, and frees it at the end of its own life.
class DialogLibrary {
public:
    DialogLibrary() = default;
    ~DialogLibrary();
    DialogLibrary(const DialogLibrary&) = delete;
    DialogLibrary& operator=(const DialogLibrary&) = delete;

    /// Loads it by its full path, so that its neighbours are found beside it.
    void load(const WideString& path);
    bool isLoaded() const { return module_ != nullptr; }
    /// The two lines of a failed load, with the platform's last error, to the log file.
    static void logFailedLoad(const char* scope);
    /// A function by its name, or NULL.
    FARPROC function(const char* name) const;
    void free();
    /// Leaves the library loaded for good.
    void giveUp() { module_ = nullptr; }

private:
    HMODULE module_ = nullptr;
};

}  // namespace KelmoraID
