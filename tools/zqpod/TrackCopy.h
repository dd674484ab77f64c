#pragma once

// zqpod copy: tracks off a device into a folder, named by a template, never harming either
// side: the device is only read, and no file already in the destination is replaced unless
// asked.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>

namespace zq {
class ZQCoreiPod;
}

namespace zqpod {

struct CopyOptions {
    std::string destination;
    std::string nameTemplate;
    std::optional<std::string> playlist;  ///< only this playlist's tracks
    std::optional<std::string> artist;    ///< only tracks whose artist or album artist contains this
    std::optional<std::string> album;
    std::optional<std::string> genre;
    bool overwrite = false;
    bool dryRun = false;
    bool playlists = false;  ///< write an M3U8 file per playlist
    bool art = false;        ///< write cover.png into each album folder
    bool live = false;       ///< draw a progress bar (the output is a terminal)
    int columns = 80;
};

struct CopySummary {
    std::size_t copied = 0;
    std::size_t skipped = 0;
    std::size_t failed = 0;
    std::size_t notOnDevice = 0;  ///< listed by the library, but only in the cloud: no file to copy
    std::uint64_t bytesCopied = 0;
    bool interrupted = false;
    bool deviceGone = false;  ///< the copy stopped because the device could not be read any more
    bool destinationFull = false;  ///< the copy stopped because the destination has no room left
};

/// A request that cannot be carried out at all (unknown playlist, destination inside the device
/// or not writable); nothing was written.
class CopyRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Copies what `options` selects from `library`, reporting to `out` as it goes (failures and
/// warnings to `err`) and closing with a summary line on `out`. Stops between pieces of a file
/// once interruptRequested() is true, removing the unfinished file.
CopySummary copyTracks(const zq::ZQCoreiPod& library, const CopyOptions& options, std::ostream& out,
                       std::ostream& err);

/// zqpod get: the file of the track with `trackID` copied as it is to `outfile` ("-" writes to
/// `out`), which appears only once all of it has come. Says what happened on `out` (a success)
/// or `err`; returns the exit status.
int getTrack(const zq::ZQCoreiPod& library, std::uint32_t trackID, const std::string& outfile, std::ostream& out,
             std::ostream& err);

/// Set from a signal handler (SIGINT, SIGTERM) to stop a copy cleanly.
void requestInterrupt() noexcept;
bool interruptRequested() noexcept;

} // namespace zqpod
