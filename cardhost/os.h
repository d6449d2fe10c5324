// The few operations that differ between the systems: libraries, the program's own place, a
// question without echo. One file each: os_posix.cpp, os_windows.cpp.
#pragma once

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cardhost::os {

/// A loaded library, unloaded with the object.
class Library {
public:
    /// Loads the file, or throws a Failure (notFound) that names it and says why.
    explicit Library(const std::filesystem::path& file);
    ~Library();
    Library(Library&& other) noexcept;
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    Library& operator=(Library&&) = delete;

    /// The address of an exported name, or null.
    void* find(const char* name) const;

    /// The exported function of that name; throws a Failure (notFound) where there is none.
    template <typename Function>
    Function get(const char* name) const {
        return reinterpret_cast<Function>(require(name));
    }

private:
    void* require(const char* name) const;

    std::filesystem::path file_;
    void* handle_;
};

/// The minidriver where none is named: the one beside the program, and on Windows, where there is
/// none beside it, the installed one.
std::filesystem::path usualDriver();

/// The double of winscard that hands its calls to a seam, in the folder of the program.
std::filesystem::path seamWinscard(const std::filesystem::path& programFolder);

/// The winscard that talks to real readers; where that is a library of our own, it stands in the
/// driver's folder.
std::filesystem::path realWinscard(const std::filesystem::path& driverFolder);

/// The folder of the running program.
std::filesystem::path programFolder();

/// The arguments behind the program's name, as UTF-8.
std::vector<std::string> arguments(int argc, char** argv);

/// The path that a UTF-8 text names.
std::filesystem::path pathOf(const std::string& text);

/// A line from the terminal that is not shown while typed, or from standard input where that is no
/// terminal. Nothing at the end of the input.
std::optional<std::string> askWithoutEcho(const std::string& prompt);

/// Where the minidriver of this system writes its log.
std::filesystem::path driverLogFile();

/// Whether the stream goes to a terminal.
bool isTerminal(std::FILE* stream);

/// Whether it goes to a terminal that moves its cursor and changes its colours by escape
/// sequences (ECMA-48). A console of Windows is told to.
bool takesEscapeSequences(std::FILE* stream);

/// The stream for the program's own report. From then on, what anyone else in the process writes to
/// standard output goes nowhere: a minidriver writes there what it reads of the card's holder.
std::FILE* separateReport();

/// From now on that goes to standard error.
void showOtherOutput();

}  // namespace cardhost::os
