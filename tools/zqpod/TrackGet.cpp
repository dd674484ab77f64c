// zqpod get: one track's file off a device as it is, without naming, to a file or to standard
// output.

#include "TerminalText.h"
#include "TrackCopy.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/foundation/ConfinedOpen.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/model/iPodTrack.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <utility>

namespace zqpod {

namespace {

std::shared_ptr<zq::iPodTrack> trackWithID(const zq::ZQCoreiPod& library, std::uint32_t trackID)
{
    std::shared_ptr<zq::iPodTrack> track;
    for (const auto& candidate : library.allTracks())
        if (candidate->trackID() == trackID)
            track = candidate;
    return track;
}

/// Where the file goes: standard output, or a temporary file beside OUTFILE that takes its name
/// only once every byte has come, so that a failed copy leaves nothing behind. The file
/// streams in pieces, never whole in memory.
class Output {
public:
    explicit Output(const std::string& outfile) : outfile_(outfile)
    {
        if (toStandardOutput())
            return;
        const std::filesystem::path target(outfile);
        const std::filesystem::path folder = target.has_parent_path() ? target.parent_path() : ".";
        temporary_ = (folder / ("." + target.filename().string() + ".zqpod-XXXXXX")).string();
        fd_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
        if (fd_ < 0) {
            error_ = errno;
            temporary_.clear();
            return;
        }
        const mode_t mask = ::umask(0);
        ::umask(mask);
        ::fchmod(fd_, 0666 & ~mask);
    }
    ~Output()
    {
        if (!temporary_.empty()) {
            ::close(fd_);
            ::unlink(temporary_.c_str());
        }
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool toStandardOutput() const { return outfile_ == "-"; }
    int fd() const { return fd_; }
    /// Why the temporary file could not be made (0 when it was).
    int error() const { return error_; }

    /// Gives the finished file its name; 0 or an errno.
    int putInPlace()
    {
        if (toStandardOutput())
            return 0;
        const int closed = ::close(std::exchange(fd_, -1));
        if (closed != 0 || ::rename(temporary_.c_str(), outfile_.c_str()) != 0)
            return errno;
        temporary_.clear();
        return 0;
    }

private:
    std::string outfile_;
    std::string temporary_;
    int fd_ = STDOUT_FILENO;
    int error_ = 0;
};

/// Why the copy did not give the whole file; "" when it did.
std::string whyIncomplete(const zq::ZQCoreiPod& library, const zq::iPodTrack& track, const zq::FileCopyResult& result,
                          const std::string& outfile)
{
    const std::string devicePath = track.filePath().value_or("no path");
    const auto expected = track.sizeOfTrackFile();
    if (!result.completed && result.destinationFailed)
        return "cannot write " + outfile + ": " + std::strerror(result.error) +
               (result.error == ENOSPC || result.error == EDQUOT ? " (the destination is full)" : "");
    if (!result.completed && result.error == EXDEV)
        return std::string(zq::kRefusedOutsideDevice) + " (" + devicePath + ")";
    if (!result.completed)
        return "cannot read " + devicePath + " on " + library.name().value_or("the device") + ": " +
               std::strerror(result.error ? result.error : EIO);
    if (expected && *expected != result.bytesCopied)
        return "the device reports " + std::to_string(*expected) + " bytes for " + devicePath + " but " +
               std::to_string(result.bytesCopied) + " were read";
    return "";
}

} // namespace

int getTrack(const zq::ZQCoreiPod& library, std::uint32_t trackID, const std::string& outfile, std::ostream& out,
             std::ostream& err)
{
    const auto track = trackWithID(library, trackID);
    if (!track) {
        err << "zqpod get: no track with ID " << trackID << " on " << terminalSafe(library.name().value_or("the device"))
            << '\n';
        return 1;
    }
    Output output(outfile);
    if (output.error()) {
        err << "zqpod get: cannot write " << outfile << ": " << std::strerror(output.error()) << '\n';
        return 1;
    }

    zq::FileCopyResult result;
    std::string failure;
    try {
        result = track->copyTrackFileTo(output.fd(), [](std::uint64_t) { return !interruptRequested(); });
    } catch (const zq::Exception& error) {
        failure = error.reason();
    }
    if (interruptRequested()) {
        err << "zqpod get: interrupted; nothing was written to " << outfile << '\n';
        return 130;
    }
    if (failure.empty())
        failure = whyIncomplete(library, *track, result, outfile);
    if (!failure.empty()) {
        err << "zqpod get: track " << trackID << " was not copied: " << terminalSafe(failure) << '\n';
        if (output.toStandardOutput())
            err << "zqpod get: what went to standard output is incomplete\n";
        return 1;
    }
    if (output.toStandardOutput())
        return 0;
    if (const int error = output.putInPlace()) {
        err << "zqpod get: cannot write " << outfile << ": " << std::strerror(error) << '\n';
        return 1;
    }
    out << "copied " << result.bytesCopied << " bytes of \"" << terminalSafe(track->title().value_or("")) << "\" to "
        << outfile << '\n';
    return 0;
}

} // namespace zqpod
