// zqpod devices / zqpod watch: the framework's device discovery as a person sees it.

#include "DeviceList.h"
#include "MobileDevices.h"
#include "TerminalText.h"
#include "LibraryReport.h"

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"

#include <glib-unix.h>
#include <glib.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace zqpod {

namespace {

using Reference = std::shared_ptr<zq::ZQCoreiPodRef>;

struct DeviceLine {
    std::string name;
    std::string serial;
    std::string type;
    std::string model;
    std::string path;
};

DeviceLine lineFor(const zq::ZQCoreiPodRef& reference)
{
    DeviceLine line;
    line.name = terminalSafe(reference.name().value_or("iPod"));
    const auto serial = reference.serialNumber();
    line.serial = terminalSafe(serial.value_or("-"));
    line.type = "-";
    if (serial) {
        // A serial too short to name a model has no type; that is no reason to stop listing.
        try {
            line.type = std::to_string(zq::modelTypeForSerialNumber(serial));
        } catch (const zq::Exception&) {
        }
    }
    line.model = describeModel(reference.model());
    line.path = reference.path().value_or("");
    return line;
}

std::string describe(const zq::ZQCoreiPodRef& reference)
{
    const DeviceLine line = lineFor(reference);
    // The model only where it is known, so that a line of a device without one reads as before.
    return line.name + " (serial " + line.serial + ", type " + line.type + (line.model.empty() ? "" : "; " + line.model) +
           ") at " + line.path;
}

gboolean quitLoop(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

} // namespace

std::size_t printConnectedDevices(std::ostream& out)
{
    const auto devices = zq::ZQCore::connectediPodsOfSharedInstance();
    if (devices.empty()) {
        // Nothing is known about the phones when the daemon is silent (already said on stderr).
        if (!mobileDevicesUnreachable() && !unopenedMobileDevices())
            out << "No devices connected.\n";
        return 0;
    }
    std::vector<DeviceLine> lines = {{"NAME", "SERIAL", "TYPE", "MODEL", "PATH"}};
    for (const auto& reference : devices) {
        lines.push_back(lineFor(*reference));
        if (lines.back().model.empty())
            lines.back().model = "-";
    }
    std::size_t nameWidth = 0, serialWidth = 0, typeWidth = 0, modelWidth = 0;
    for (const auto& line : lines) {
        nameWidth = std::max(nameWidth, line.name.size());
        serialWidth = std::max(serialWidth, line.serial.size());
        typeWidth = std::max(typeWidth, line.type.size());
        modelWidth = std::max(modelWidth, line.model.size());
    }
    auto padded = [](const std::string& text, std::size_t width) { return text + std::string(width - text.size() + 2, ' '); };
    for (const auto& line : lines)
        out << padded(line.name, nameWidth) << padded(line.serial, serialWidth) << padded(line.type, typeWidth)
            << padded(line.model, modelWidth) << line.path << '\n';
    return devices.size();
}

void watchDevices(std::ostream& out)
{
    // The framework delivers mount events on the main context that is thread-default when it
    // is first used: the global default context here, which the loop below runs.
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    const auto& core = zq::ZQCore::sharedInstance();

    std::vector<Reference> known = core->connectediPods();
    for (const auto& reference : known)
        out << "present: " << terminalSafe(describe(*reference)) << std::endl;
    out << "Watching for devices; press Ctrl-C to stop." << std::endl;

    // The list is compared with the one seen last: both notices of a change come after it.
    const auto token = core->addObserver("connectediPods", [&](const std::string&, zq::Observable::Phase phase) {
        if (phase != zq::Observable::Phase::DidChange)
            return;
        const std::vector<Reference> now = core->connectediPods();
        for (const auto& reference : known)
            if (std::find(now.begin(), now.end(), reference) == now.end())
                out << "departed: " << terminalSafe(describe(*reference)) << std::endl;
        for (const auto& reference : now)
            if (std::find(known.begin(), known.end(), reference) == known.end())
                out << "arrived: " << terminalSafe(describe(*reference)) << std::endl;
        known = now;
    });

    // Each catchable signal ends the watch through the loop, so that a library being loaded
    // when it comes is finished and its temporary copies removed.
    const guint interrupt = g_unix_signal_add(SIGINT, quitLoop, loop);
    const guint terminate = g_unix_signal_add(SIGTERM, quitLoop, loop);
    const guint hangUp = g_unix_signal_add(SIGHUP, quitLoop, loop);
    g_main_loop_run(loop);
    g_source_remove(interrupt);
    g_source_remove(terminate);
    g_source_remove(hangUp);
    core->removeObserver(token);
    g_main_loop_unref(loop);
}

} // namespace zqpod
