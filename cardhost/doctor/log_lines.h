// The lines of the driver's log file: "[2026-11-21 05:10:19] [CardReadFile] Entering the function".
// Several processes write into one file without regard for each other, so that lines may be cut or
// run together; and a file from elsewhere may hold anything at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "bytes.h"

namespace cardhost::doctor {

struct LogLine {
    std::string_view time;
    std::string_view scope;
    std::string_view message;
};

/// Cuts a stream of bytes into the log's lines. Takes memory for one line only, whose length is
/// bounded too: of a longer one the rest is dropped.
class LogLines {
public:
    using Use = std::function<void(const LogLine& line)>;

    explicit LogLines(Use use) : use_(std::move(use)) {}

    void add(ByteView piece);
    /// The end of the file: what has no line end yet is a line too.
    void finish();

    std::uint64_t lines() const { return lines_; }
    /// Lines that are none of the log's, or only a part of one.
    std::uint64_t strays() const { return strays_; }

private:
    void endLine();
    void take(std::string_view line);

    Use use_;
    std::string line_;
    bool isLong_ = false;
    std::uint64_t lines_ = 0;
    std::uint64_t strays_ = 0;
};

}  // namespace cardhost::doctor
