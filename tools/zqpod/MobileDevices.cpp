// The mobile devices behind usbmuxd as zqpod meets them: gathered before a command reads the
// connected list, named by their UDID, and one track's file copied off as it is.

#include "MobileDevices.h"

#include "DeviceSelection.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Log.h"

#include <chrono>
#include <fstream>
#include <iostream>
#include <string_view>

namespace zqpod {

namespace {

constexpr std::string_view kOpenFailure = "AFC device ";

std::string explain(const std::string& line)
{
    if (line.find("Device pairing failed") != std::string::npos ||
        line.find("AMDeviceValidatePairing") != std::string::npos ||
        line.find("AMDeviceStartSession") != std::string::npos)
        return line + "\n  This computer is not trusted by the device: unlock it, tap \"Trust\" when asked, and pair\n"
                      "  it (for example with idevicepair pair), then connect it again.";
    return line;
}

} // namespace

void collectMobileDevices()
{
    static bool collected = false;
    if (collected)
        return;
    collected = true;
    // Framework log lines about devices that could not be opened are what a person needs here.
    zq::setLogHandler([](const std::string& line) {
        if (line.rfind(kOpenFailure, 0) == 0)
            std::cerr << "zqpod: " << explain(line) << std::endl;
    });
    zq::ZQCore::sharedInstance();
    zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(5));
}

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
        err << "zqpod get: no track with ID " << trackID << " on " << library->name().value_or("the device") << '\n';
        return 1;
    }
    const auto contents = track->contentsOfTrackFile();
    if (!contents) {
        err << "zqpod get: the file of track " << trackID << " (" << track->filePath().value_or("no path")
            << ") cannot be read\n";
        return 1;
    }
    if (args[2] == "-") {
        out.write(reinterpret_cast<const char*>(contents->bytes()), static_cast<std::streamsize>(contents->size()));
        out.flush();
        return 0;
    }
    std::ofstream file(args[2], std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(contents->bytes()), static_cast<std::streamsize>(contents->size()));
    file.close();
    if (!file) {
        err << "zqpod get: cannot write " << args[2] << '\n';
        return 1;
    }
    out << "copied " << contents->size() << " bytes of \"" << track->title().value_or("") << "\" to " << args[2] << '\n';
    return 0;
}

} // namespace zqpod
