#include "ZQCore/device/VolumeMonitor.h"

#include "ZQCore/foundation/Log.h"

#include <gio/gunixmounts.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string_view>

namespace zq {

namespace {

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

/// Whether `path` lies strictly below the folder `folder` (given with its trailing slash).
bool isBelow(std::string_view path, std::string_view folder)
{
    return startsWith(path, folder) && path.size() > folder.size();
}

bool hasHiddenComponent(std::string_view path)
{
    std::size_t start = 0;
    while (start < path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (end > start && path[start] == '.')
            return true;
        start = end + 1;
    }
    return false;
}

bool isBlockDevice(const std::string& path)
{
    struct stat info {};
    return !path.empty() && path[0] == '/' && ::stat(path.c_str(), &info) == 0 && S_ISBLK(info.st_mode);
}

std::string text(const char* value) { return value ? value : ""; }

} // namespace

std::vector<MountedVolume> VolumeMonitor::mountedVolumes()
{
    std::vector<MountedVolume> volumes;
    GList* mounts = g_unix_mounts_get(nullptr);
    for (GList* item = mounts; item; item = item->next) {
        auto* entry = static_cast<GUnixMountEntry*>(item->data);
        MountedVolume volume;
        volume.mountPath = text(g_unix_mount_get_mount_path(entry));
        volume.devicePath = text(g_unix_mount_get_device_path(entry));
        volume.fsType = text(g_unix_mount_get_fs_type(entry));
        volume.blockDevice = isBlockDevice(volume.devicePath);
        volumes.push_back(std::move(volume));
    }
    g_list_free_full(mounts, reinterpret_cast<GDestroyNotify>(g_unix_mount_free));
    return volumes;
}

bool VolumeMonitor::isRemovableVolume(const MountedVolume& volume, const std::string& userName, bool runningAsRoot)
{
    const std::string_view path = volume.mountPath;
    bool inMediaFolder = isBelow(path, "/media/");
    if (!inMediaFolder && isBelow(path, "/run/media/")) {
        const std::string_view rest = path.substr(std::string_view("/run/media/").size());
        const std::size_t slash = rest.find('/');
        // /run/media/USER/LABEL: the user's own folder, and something mounted inside it.
        if (slash != std::string_view::npos && slash > 0 && slash + 1 < rest.size())
            inMediaFolder = runningAsRoot || rest.substr(0, slash) == userName;
    }
    if (!inMediaFolder || hasHiddenComponent(path))
        return false;
    if (g_unix_is_mount_path_system_internal(volume.mountPath.c_str()) ||
        g_unix_is_system_fs_type(volume.fsType.c_str()) || g_unix_is_system_device_path(volume.devicePath.c_str()))
        return false;
    return volume.blockDevice;
}

bool VolumeMonitor::isRemovableVolume(const MountedVolume& volume)
{
    return isRemovableVolume(volume, text(g_get_user_name()), ::geteuid() == 0);
}

std::vector<std::string> VolumeMonitor::mountedRemovableMedia() { return removableMedia(mountedVolumes()); }

std::vector<std::string> VolumeMonitor::removableMedia(const std::vector<MountedVolume>& volumes)
{
    const std::string userName = text(g_get_user_name());
    const bool runningAsRoot = ::geteuid() == 0;
    std::vector<std::string> paths;
    for (const auto& volume : volumes)
        if (isRemovableVolume(volume, userName, runningAsRoot) &&
            std::find(paths.begin(), paths.end(), volume.mountPath) == paths.end())
            paths.push_back(volume.mountPath);
    return paths;
}

struct VolumeMonitor::Connection {
    GUnixMountMonitor* monitor = nullptr;
    gulong handler = 0;
    std::function<void()> changed;

    static void mountsChanged(GUnixMountMonitor*, gpointer data)
    {
        auto* self = static_cast<Connection*>(data);
        try {
            self->changed();
        } catch (const std::exception& error) {
            log(std::string("Could not handle a change of the mounted volumes: ") + error.what());
        } catch (...) {
            log("Could not handle a change of the mounted volumes.");
        }
    }
};

VolumeMonitor::VolumeMonitor(std::function<void()> changed) : connection_(std::make_unique<Connection>())
{
    connection_->changed = std::move(changed);
    // The monitor delivers its signal on the main context that is thread-default when it is
    // asked for; GIO watches the kernel's mount table from its own worker and hands each change
    // over to that context.
    connection_->monitor = g_unix_mount_monitor_get();
    connection_->handler = g_signal_connect(connection_->monitor, "mounts-changed",
                                            G_CALLBACK(&Connection::mountsChanged), connection_.get());
}

VolumeMonitor::~VolumeMonitor()
{
    if (connection_->monitor) {
        g_signal_handler_disconnect(connection_->monitor, connection_->handler);
        g_object_unref(connection_->monitor);
    }
}

} // namespace zq
