#include "DeviceSelection.h"
#include "MobileDevices.h"
#include "TerminalText.h"

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <vector>

namespace zqpod {

namespace {

using Reference = std::shared_ptr<zq::ZQCoreiPodRef>;

bool equalIgnoringCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

std::string candidateLine(const zq::ZQCoreiPodRef& reference)
{
    return "  " + reference.name().value_or("iPod") + "  (serial " + reference.serialNumber().value_or("unknown") +
           ")  at " + reference.path().value_or("?") + "\n";
}

std::string candidateList(const std::vector<Reference>& devices)
{
    std::string list;
    for (const auto& reference : devices)
        list += candidateLine(*reference);
    return list;
}

constexpr const char* kHowToName =
    "Name a device by its mount path (the folder that holds iPod_Control), its serial number, its name or its UDID.";

/// A path named on the command line must be a device's folder: anything else would read as a
/// library without tracks.
void checkIsDeviceFolder(const std::string& path)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const auto status = fs::status(path, error);
    // Said in the user's words here; the framework's own reason names its classes.
    if (!fs::exists(status))
        throw DeviceSelectionError(path + " does not exist. Name the folder where the iPod's volume is mounted (the "
                                          "one that holds iPod_Control), or a phone's folder (the one that holds "
                                          "iTunes_Control).");
    if (!fs::is_directory(status))
        throw DeviceSelectionError(path + " is not a device: it is a file. Name the folder where the iPod's volume "
                                          "is mounted (the one that holds iPod_Control), or a phone's folder (the one "
                                          "that holds iTunes_Control).");
    const bool iPod = fs::exists(fs::path(path) / "iPod_Control", error);
    const bool phone = fs::exists(fs::path(path) / "iTunes_Control", error);
    if (!iPod && !phone)
        throw DeviceSelectionError(path + " is not an iPod or iPhone: it holds no iPod_Control folder (as an iPod's "
                                          "volume does) and no iTunes_Control folder (as a phone's does).");
}

} // namespace

Reference selectDevice(const std::optional<std::string>& which)
{
    std::error_code ignored;
    if (which && (which->find('/') != std::string::npos || std::filesystem::exists(*which, ignored))) {
        checkIsDeviceFolder(*which);
        return zq::ZQCoreiPodRef::initWithPath(*which);
    }

    collectMobileDevices();
    const std::vector<Reference> connected = zq::ZQCore::connectediPodsOfSharedInstance();
    if (!which) {
        if (connected.size() == 1)
            return connected.front();
        if (connected.empty() && mobileDevicesUnreachable())
            throw DeviceSelectionError("No device found: the phones could not be listed (see above).");
        if (connected.empty() && unopenedMobileDevices())
            throw DeviceSelectionError("No device found that could be opened (see above).");
        if (connected.empty())
            throw DeviceSelectionError(
                "No device is connected. Connect an iPod in disk mode (it appears in 'zqpod devices'), or name the "
                "folder that holds its iPod_Control (zq-make-sample DIR writes a sample device to try).");
        throw DeviceSelectionError(std::to_string(connected.size()) + " devices are connected; say which one:\n" +
                                   candidateList(connected) + kHowToName);
    }

    // A serial number says exactly one device; a name may be shared, and then it is not enough.
    std::vector<Reference> matches;
    for (const auto& reference : connected)
        if (auto serial = reference->serialNumber(); serial && equalIgnoringCase(*serial, *which))
            return reference;
    for (const auto& reference : connected)
        if (auto udid = udidOf(*reference); udid && equalIgnoringCase(*udid, *which))
            return reference;
    for (const auto& reference : connected)
        if (reference->name() == *which)
            matches.push_back(reference);
    if (matches.empty())
        for (const auto& reference : connected)
            if (auto name = reference->name(); name && equalIgnoringCase(*name, *which))
                matches.push_back(reference);
    if (matches.size() == 1)
        return matches.front();
    if (matches.size() > 1)
        throw DeviceSelectionError(std::to_string(matches.size()) + " connected devices are called '" + *which +
                                   "'; name one by its serial number or mount path:\n" + candidateList(matches));
    if (connected.empty() && mobileDevicesUnreachable())
        throw DeviceSelectionError("No device called '" + *which + "' is known: the phones could not be listed (see above).");
    if (connected.empty() && unopenedMobileDevices())
        throw DeviceSelectionError("No device called '" + *which + "' could be opened (see above).");
    if (connected.empty())
        throw DeviceSelectionError("No device called '" + *which +
                                   "': no device is connected, and there is no folder of that name here.");
    throw DeviceSelectionError("No connected device has the serial number or name '" + *which +
                               "'. Connected now:\n" + candidateList(connected) + kHowToName);
}

std::shared_ptr<zq::ZQCoreiPod> openSelectedDevice(const std::optional<std::string>& which)
{
    auto reference = selectDevice(which);
    auto library = zq::ZQCoreiPod::initWithiPodReference(reference);
    // A device that was never synced has no library database at all: that is not a library of
    // 0 tracks, and nothing can be listed or copied from it.
    if (library->librarySource() == zq::ZQCoreiPod::LibrarySource::None)
        throw DeviceSelectionError(library->name().value_or("iPod") + " (" + reference->path().value_or("?") +
                                   "): no music library on this device yet. It holds no iTunesDB, iTunesCDB or "
                                   "SQLite library database; sync music to it with iTunes or Music first.");
    // What could not be read is said, never left for the listing to hide.
    for (const auto& warning : library->loadWarnings())
        std::cerr << "zqpod: warning: " << terminalSafe(warning) << '\n';
    return library;
}

} // namespace zqpod
