// The fixed places of a build. Nothing configures them: every platform has its own, linked in from
// platform/windows/ or posix/, and tests link their own instead.
#pragma once

/// The path of the log file, in the file system's own 8-bit form.
const char* logFilePath();

/// The path of the file that holds the two settings where there is no registry. Not linked on
/// Windows.
const char* settingsFilePath();
