#pragma once

// What a person sees while a copy runs: on a terminal, one live line with a bar, files, bytes,
// speed and time left, with notes scrolling above it; elsewhere (a pipe, a log), plain lines.
// Failures go to standard error, the rest to standard output.

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace zqpod {

/// "1.4 MB", "312 KB", "17 B": decimal units, as file managers show sizes.
std::string formatBytes(std::uint64_t bytes);
/// "0:07", "12:30", "1:02:03".
std::string formatDuration(std::chrono::seconds duration);

class CopyProgress {
public:
    using Clock = std::chrono::steady_clock;

    /// What a note is: routine lines (a file copied) are the progress, shown only without the
    /// bar; notices (a name kept, a track only in the cloud) scroll above the bar; failures do
    /// too, but on `err`.
    enum Kind { Routine, Notice, Failure };

    /// `live`: draw the bar on `out` (a terminal `columns` wide).
    CopyProgress(std::ostream& out, std::ostream& err, bool live, int columns = 80);

    /// The copy of `files` files, `bytes` in all, starts (at `start`; speed counts from there).
    void begin(std::size_t files, std::uint64_t bytes, Clock::time_point start = Clock::now());
    /// A file starts; `bytesBefore` of the total are done.
    void startFile(const std::string& name);
    /// The current file has `bytes` copied so far. Redraws at most ten times a second.
    void advance(std::uint64_t bytes);
    /// The current file is done (copied or given up); `bytes` were planned for it.
    void finishFile(std::uint64_t plannedBytes);
    /// A line for the person, made safe for a terminal.
    void note(const std::string& line, Kind kind);
    /// Removes the bar; the summary follows on a clean line.
    void end();

    /// The bar as drawn at `now` (no control characters), for tests and for drawing.
    std::string barLine(Clock::time_point now) const;

private:
    void draw(Clock::time_point now);
    void clearLine();

    std::ostream& out_;
    std::ostream& err_;
    bool live_;
    int columns_;
    std::size_t totalFiles_ = 0;
    std::uint64_t totalBytes_ = 0;
    std::size_t doneFiles_ = 0;
    std::uint64_t doneBytes_ = 0;    ///< of finished files
    std::uint64_t currentBytes_ = 0; ///< of the file being copied
    std::string currentName_;
    Clock::time_point started_{};
    Clock::time_point lastDrawn_{};
    bool drawn_ = false;
};

} // namespace zqpod
