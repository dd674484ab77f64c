#include "ZQCore/device/ZQCore.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"

namespace zq {

ZQCore::ZQCore()
{
    // Device discovery (the mounted volumes at start-up and their mount and unmount events)
    // is set up here once the volume monitor is part of the framework; until then
    // connectediPods stays empty and clients open devices from their mount paths.
}

const std::shared_ptr<ZQCore>& ZQCore::sharedInstance()
{
    static const std::shared_ptr<ZQCore> instance(new ZQCore());
    return instance;
}

std::vector<std::shared_ptr<ZQCoreiPodRef>> ZQCore::connectediPodsOfSharedInstance()
{
    return sharedInstance()->connectediPods();
}

std::shared_ptr<ZQCoreiPod> ZQCore::existingiPodForReference(const std::shared_ptr<ZQCoreiPodRef>& reference) const
{
    const auto serial = reference ? reference->serialNumber() : std::nullopt;
    if (!serial)
        return nullptr;
    for (const auto& library : iPodInstances_) {
        const Value* theirs = library->properties().find("SerialNumber");
        if (theirs && theirs->string() && *theirs->string() == *serial)
            return library;
    }
    return nullptr;
}

void ZQCore::iPodWasCreated(const std::shared_ptr<ZQCoreiPod>& library) { iPodInstances_.push_back(library); }

} // namespace zq
