#include "ZQCore/device/ZQCore.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"

#include "ZQCore/device/VolumeMonitor.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/File.h"

#include <algorithm>
#include <mutex>

namespace zq {

namespace {

bool holdsDeviceFolder(const std::string& volumePath) { return fileExists(volumePath + "/iPod_Control"); }

/// Whether a reference's device is still there. A mounted volume's path must still exist and
/// still have a file system mounted on it: on Linux the mount-point folder often outlives the
/// volume (a folder named in fstab stays; udisks removes its own folder only after the unmount,
/// so the change can be handled in between), and an empty folder is no device. A device
/// reached some other way answers a path that only has to exist.
bool isPresent(const ZQCoreiPodRef& reference, const std::vector<MountedVolume>& volumes)
{
    const auto path = reference.path();
    if (!path || !fileExists(*path))
        return false;
    if (!reference.isMountedVolume())
        return true;
    return std::any_of(volumes.begin(), volumes.end(), [&](const MountedVolume& volume) { return volume.mountPath == *path; });
}

// The registry of loaded libraries is the one part of the shared instance that other threads
// touch: an application loads libraries off its main thread, and each load registers itself.
std::mutex& registryMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Library objects loaded while there was no shared instance yet, and that instance once made.
std::vector<std::shared_ptr<ZQCoreiPod>>& librariesLoadedEarly()
{
    static std::vector<std::shared_ptr<ZQCoreiPod>> libraries;
    return libraries;
}
ZQCore* madeInstance = nullptr;

std::shared_ptr<ZQCoreiPod> firstWithSerialOf(const std::vector<std::shared_ptr<ZQCoreiPod>>& libraries,
                                              const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    const auto serial = reference ? reference->serialNumber() : std::nullopt;
    if (!serial)
        return nullptr;
    for (const auto& library : libraries) {
        const Value* theirs = library->properties().find("SerialNumber");
        if (theirs && theirs->string() && *theirs->string() == *serial)
            return library;
    }
    return nullptr;
}

} // namespace

ZQCore::ZQCore()
{
    {
        std::lock_guard lock(registryMutex());
        iPodInstances_ = std::move(librariesLoadedEarly());
    }
    // libimobiledevice is linked in, so mobile devices are always looked for; without a
    // running usbmuxd none arrive. The factory's delegate is set by sharedInstance, which
    // holds the owning pointer.
    supportsAFCDevices_ = true;

    // Watch first, list second: a volume that comes between the two is then reported by the
    // change that follows instead of being missed.
    volumeMonitor_ = std::make_unique<VolumeMonitor>([this] { checkForNewiPods(); });
    for (const auto& volume : VolumeMonitor::mountedRemovableMedia())
        if (holdsDeviceFolder(volume))
            connectedDevices_.push_back(ZQCoreiPodRef::initWithPath(volume));
}

ZQCore::~ZQCore()
{
    if (madeInstance == this)
        madeInstance = nullptr;
}

const std::shared_ptr<ZQCore>& ZQCore::sharedInstance()
{
    static const std::shared_ptr<ZQCore> instance = [] {
        std::shared_ptr<ZQCore> core(new ZQCore());
        if (core->supportsAFCDevices_)
            AFCFactory::factory()->setDelegate(core);
        madeInstance = core.get();
        return core;
    }();
    return instance;
}

std::vector<std::shared_ptr<ZQCoreiPodRef>> ZQCore::connectediPodsOfSharedInstance()
{
    return sharedInstance()->connectediPods();
}

std::shared_ptr<ZQCoreiPod> ZQCore::existingiPodForReference(const std::shared_ptr<ZQCoreiPodRef>& reference) const
{
    std::lock_guard lock(registryMutex());
    return firstWithSerialOf(iPodInstances_, reference);
}

std::vector<std::shared_ptr<ZQCoreiPod>> ZQCore::iPodInstances() const
{
    std::lock_guard lock(registryMutex());
    return iPodInstances_;
}

void ZQCore::iPodWasCreated(const std::shared_ptr<ZQCoreiPod>& library)
{
    std::lock_guard lock(registryMutex());
    iPodInstances_.push_back(library);
}

std::shared_ptr<ZQCoreiPod> ZQCore::existingLibraryForReference(const std::shared_ptr<ZQCoreiPodRef>& reference)
{
    if (madeInstance)
        return madeInstance->existingiPodForReference(reference);
    std::lock_guard lock(registryMutex());
    return firstWithSerialOf(librariesLoadedEarly(), reference);
}

void ZQCore::libraryWasLoaded(const std::shared_ptr<ZQCoreiPod>& library)
{
    if (madeInstance) {
        madeInstance->iPodWasCreated(library);
        return;
    }
    std::lock_guard lock(registryMutex());
    librariesLoadedEarly().push_back(library);
}

void ZQCore::checkForNewiPods()
{
    const std::vector<MountedVolume> volumes = VolumeMonitor::mountedVolumes();

    // Volume references are judged here; references of devices reached otherwise never are.
    std::vector<std::shared_ptr<ZQCoreiPodRef>> stale;
    for (const auto& reference : connectedDevices_)
        if (reference->isMountedVolume())
            stale.push_back(reference);
    bool changed = false;

    for (const auto& path : VolumeMonitor::removableMedia(volumes)) {
        if (!holdsDeviceFolder(path))
            continue;
        // Any device volume keeps every listed reference off the stale list, not only its
        // own: from here on only the presence test below removes references.
        bool listed = false;
        for (const auto& reference : connectedDevices_) {
            if (reference->path() == path)
                listed = true;
            std::erase(stale, reference);
        }
        if (!listed) {
            auto reference = ZQCoreiPodRef::initWithPath(path);
            if (auto library = existingiPodForReference(reference))
                library->setIsConnected(true);
            connectedDevices_.push_back(reference);
            changed = true;
        }
    }

    for (const auto& reference : connectedDevices_) {
        if (isPresent(*reference, volumes))
            continue;
        if (std::find(stale.begin(), stale.end(), reference) == stale.end())
            stale.push_back(reference);
        if (auto library = existingiPodForReference(reference))
            library->setIsConnected(false);
    }

    if (!stale.empty()) {
        std::erase_if(connectedDevices_, [&](const std::shared_ptr<ZQCoreiPodRef>& reference) {
            return std::find(stale.begin(), stale.end(), reference) != stale.end();
        });
        changed = true;
    }

    // Both notices come after the change: observers read the new list on either.
    if (changed) {
        willChangeValueForKey("connectediPods");
        didChangeValueForKey("connectediPods");
    }
}

void ZQCore::AFCDeviceWasConnected(const std::shared_ptr<AFCDeviceRef>& device)
{
    ChangeScope change(*this, "connectediPods");
    auto session = AFCDevice::initWithRef(device);
    auto reference = AFCiPodRef::initWithDevice(session);
    if (auto library = std::dynamic_pointer_cast<AFCiPod>(existingiPodForReference(reference))) {
        library->setDevice(session);
        library->setIsConnected(true);
    }
    connectedDevices_.push_back(reference);
}

void ZQCore::AFCDeviceWasDisconnected(const std::shared_ptr<AFCDeviceRef>& device)
{
    ChangeScope change(*this, "connectediPods");
    std::shared_ptr<ZQCoreiPodRef> target;
    for (const auto& reference : connectedDevices_) {
        auto mobile = std::dynamic_pointer_cast<AFCiPodRef>(reference);
        if (mobile && mobile->device() && mobile->device()->device() && device &&
            mobile->device()->device()->deviceID() == device->deviceID())
            target = reference;
    }
    if (!target)
        return;
    if (auto library = std::dynamic_pointer_cast<AFCiPod>(existingiPodForReference(target)))
        library->setIsConnected(false);
    std::erase(connectedDevices_, target);
}

} // namespace zq
