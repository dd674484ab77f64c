#include "DeviceWatcher.h"

#include "Text.h"

#include <ZQCore/afc/AFCFactory.h>
#include <ZQCore/afc/AFCiPodRef.h>
#include <ZQCore/device/ZQCore.h>
#include <ZQCore/foundation/Image.h>
#include <ZQCore/foundation/Exception.h>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QPixmap>

namespace gui {

QIcon iconFromImage(const std::shared_ptr<zq::Image>& image)
{
    const QImage converted = toQImage(image.get());
    return converted.isNull() ? QIcon() : QIcon(QPixmap::fromImage(converted));
}

bool DeviceWatcher::eventLoopRunsGLib()
{
    auto* dispatcher = QAbstractEventDispatcher::instance();
    return dispatcher && dispatcher->inherits("QEventDispatcherGlib");
}

DeviceEntry DeviceWatcher::entryFor(const std::shared_ptr<zq::ZQCoreiPodRef>& reference)
{
    DeviceEntry entry;
    entry.reference = reference;
    entry.name = toQString(reference->name());
    if (entry.name.isEmpty())
        entry.name = QCoreApplication::translate("DeviceWatcher", "iPod");
    const zq::DeviceModel model = reference->model();
    entry.modelName = toQString(model.name());
    if (model.generation() && !entry.modelName.isEmpty())
        entry.modelName += QStringLiteral(" (%1)").arg(toQString(model.generation()));
    entry.capacity = toQString(model.capacity());
    entry.mobile = !reference->isMountedVolume();
    entry.icon = iconFromImage(reference->icon());
    return entry;
}

DeviceWatcher::DeviceWatcher(QObject* parent) : QObject(parent)
{
    // Posted on the main context, as the arrival that failed was.
    failureToken_ = zq::NotificationCenter::defaultCenter().addObserver(
        "AFC_DeviceCouldNotBeOpened", [this](const std::string&, const std::any& failure) { couldNotOpen(failure); });
    const auto& core = zq::ZQCore::sharedInstance();
    token_ = core->addObserver("connectediPods", [this](const std::string&, zq::Observable::Phase phase) {
        if (phase == zq::Observable::Phase::DidChange)
            refresh();
    });
    // A phone that refused this computer is forgotten when a device leaves that the framework
    // did not list (the departure names only a number the refusal did not give).
    departureToken_ = zq::NotificationCenter::defaultCenter().addObserver(
        "AFC_DeviceWasDisconnected", [this](const std::string&, const std::any&) {
            if (!refused_.empty()) {
                refused_.clear();
                refresh();
            }
        });
    zq::AFCFactory::factory();
    refresh();
}

DeviceWatcher::~DeviceWatcher()
{
    zq::ZQCore::sharedInstance()->removeObserver(token_);
    zq::NotificationCenter::defaultCenter().removeObserver(departureToken_);
    zq::NotificationCenter::defaultCenter().removeObserver(failureToken_);
}

void DeviceWatcher::refresh()
{
    devices_.clear();
    for (const auto& reference : zq::ZQCore::sharedInstance()->connectediPods())
        devices_.push_back(entryFor(reference));
    devices_.insert(devices_.end(), refused_.begin(), refused_.end());
    emit devicesChanged();
}

void DeviceWatcher::couldNotOpen(const std::any& object)
{
    const auto* failure = std::any_cast<zq::AFCDeviceOpenFailure>(&object);
    if (!failure)
        return;
    DeviceEntry entry;
    entry.name = failure->serialNumber ? tr("Phone %1").arg(QString::fromStdString(*failure->serialNumber))
                                       : tr("Phone");
    entry.mobile = true;
    // A device refuses a session only to a computer it does not trust: that a person can fix.
    entry.problem = failure->kind == zq::ErrorKind::Refused
                        ? tr("This computer is not trusted by the phone: unlock it and tap Trust, then connect it "
                             "again.")
                        : tr("The phone could not be opened: %1").arg(QString::fromStdString(failure->what));
    refused_.push_back(entry);
    refresh();
}

} // namespace gui
