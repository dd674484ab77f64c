// The mobile devices behind usbmuxd as zqpod meets them: gathered before a command reads the
// connected list, named by their UDID, and one track's file copied off as it is.

#include "MobileDevices.h"
#include "TerminalText.h"

#include "DeviceSelection.h"

#include "ZQCore/foundation/ConfinedOpen.h"
#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/NotificationCenter.h"

#include "TrackCopy.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <utility>

namespace zqpod {

namespace {

std::string explain(const zq::AFCDeviceOpenFailure& failure)
{
    // A device refuses a session only to a computer it does not trust; that one thing a person
    // can put right, so it is said how.
    if (failure.kind == zq::ErrorKind::Refused)
        return failure.description() +
               "\n  This computer is not trusted by the device: unlock it, tap \"Trust\" when asked, and pair\n"
               "  it (for example with idevicepair pair), then connect it again.";
    return failure.description();
}

/// Devices that were attached but could not be opened (each said on stderr as it failed).
int gUnopenedDevices = 0;

} // namespace

int unopenedMobileDevices() { return gUnopenedDevices; }

void collectMobileDevices()
{
    static bool collected = false;
    if (collected)
        return;
    collected = true;
    // Of what the framework has to say while devices arrive, only the devices that could not be
    // opened matter to a person here; its log lines are not for the terminal.
    zq::setLogHandler([](const std::string&) {});
    zq::NotificationCenter::defaultCenter().addObserver(
        "AFC_DeviceCouldNotBeOpened", [](const std::string&, const std::any& object) {
            if (const auto* failure = std::any_cast<zq::AFCDeviceOpenFailure>(&object)) {
                ++gUnopenedDevices;
                std::cerr << "zqpod: " << explain(*failure) << std::endl;
            }
        });
    zq::ZQCore::sharedInstance();
    zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(5));
    if (const auto silent = mobileDevicesUnreachable())
        std::cerr << "zqpod: " << *silent << ": phones and iPod touches cannot be listed. Restart it (for example: "
                  << "systemctl restart usbmuxd) and try again; --timeout sets how many seconds to wait.\n";
}

std::optional<std::string> mobileDevicesUnreachable() { return zq::MobileDevicePlatform::shared()->notAnswering(); }

std::optional<std::string> udidOf(const zq::ZQCoreiPodRef& reference)
{
    auto mobile = dynamic_cast<const zq::AFCiPodRef*>(&reference);
    if (!mobile || !mobile->device() || !mobile->device()->device() || !mobile->device()->device()->device())
        return std::nullopt;
    return mobile->device()->device()->device()->copyValue(std::nullopt, "UniqueDeviceID");
}

int copyTrack(const std::vector<std::string>& args, std::ostream& out, std::ostream& err)
{
    if (args.size() != 3) {
        err << "usage: zqpod get DEVICE TRACK-ID OUTFILE\n";
        return 2;
    }
    std::uint32_t trackID = 0;
    try {
        trackID = static_cast<std::uint32_t>(std::stoul(args[1]));
    } catch (const std::exception&) {
        err << "zqpod get: '" << args[1] << "' is not a track ID\n";
        return 2;
    }
    auto library = openSelectedDevice(args[0]);
    std::shared_ptr<zq::iPodTrack> track;
    for (const auto& candidate : library->allTracks())
        if (candidate->trackID() == trackID)
            track = candidate;
    if (!track) {
        err << "zqpod get: no track with ID " << trackID << " on " << terminalSafe(library->name().value_or("the device"))
            << '\n';
        return 1;
    }
    const std::string devicePath = track->filePath().value_or("no path");
    const bool toStandardOutput = args[2] == "-";
    // The file streams in pieces, never whole in memory, into a temporary file beside OUTFILE
    // that takes its name only once every byte has come: a failed copy leaves nothing behind.
    std::string temporary;
    int fd = STDOUT_FILENO;
    if (!toStandardOutput) {
        const std::filesystem::path target(args[2]);
        const std::filesystem::path folder = target.has_parent_path() ? target.parent_path() : ".";
        temporary = (folder / ("." + target.filename().string() + ".zqpod-XXXXXX")).string();
        fd = ::mkostemp(temporary.data(), O_CLOEXEC);
        if (fd < 0) {
            err << "zqpod get: cannot write " << args[2] << ": " << std::strerror(errno) << '\n';
            return 1;
        }
        const mode_t mask = ::umask(0);
        ::umask(mask);
        ::fchmod(fd, 0666 & ~mask);
    }
    struct Cleanup {
        std::string path;
        int fd;
        ~Cleanup()
        {
            if (!path.empty()) {
                ::close(fd);
                ::unlink(path.c_str());
            }
        }
    } cleanup{temporary, fd};

    zq::FileCopyResult result;
    std::string failure;
    try {
        result = track->copyTrackFileTo(fd, [](std::uint64_t) { return !interruptRequested(); });
    } catch (const zq::Exception& error) {
        failure = error.reason();
    }
    if (interruptRequested()) {
        err << "zqpod get: interrupted; nothing was written to " << args[2] << '\n';
        return 130;
    }
    const auto expected = track->sizeOfTrackFile();
    if (failure.empty() && !result.completed && result.destinationFailed)
        failure = "cannot write " + args[2] + ": " + std::strerror(result.error) +
                  (result.error == ENOSPC || result.error == EDQUOT ? " (the destination is full)" : "");
    else if (failure.empty() && !result.completed && result.error == EXDEV)
        failure = std::string(zq::kRefusedOutsideDevice) + " (" + devicePath + ")";
    else if (failure.empty() && !result.completed)
        failure = "cannot read " + devicePath + " on " + library->name().value_or("the device") + ": " +
                  std::strerror(result.error ? result.error : EIO);
    else if (failure.empty() && expected && *expected != result.bytesCopied)
        failure = "the device reports " + std::to_string(*expected) + " bytes for " + devicePath + " but " +
                  std::to_string(result.bytesCopied) + " were read";
    if (!failure.empty()) {
        err << "zqpod get: track " << trackID << " was not copied: " << terminalSafe(failure) << '\n';
        if (toStandardOutput)
            err << "zqpod get: what went to standard output is incomplete\n";
        return 1;
    }
    if (toStandardOutput)
        return 0;
    const int closed = ::close(std::exchange(cleanup.fd, -1));
    if (closed != 0 || ::rename(temporary.c_str(), args[2].c_str()) != 0) {
        err << "zqpod get: cannot write " << args[2] << ": " << std::strerror(errno) << '\n';
        return 1;
    }
    cleanup.path.clear();
    out << "copied " << result.bytesCopied << " bytes of \"" << terminalSafe(track->title().value_or("")) << "\" to "
        << args[2] << '\n';
    return 0;
}

} // namespace zqpod
