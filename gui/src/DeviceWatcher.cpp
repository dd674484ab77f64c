#include "DeviceWatcher.h"

#include "Text.h"

#include <ZQCore/afc/AFCFactory.h>
#include <ZQCore/afc/AFCiPodRef.h>
#include <ZQCore/device/ZQCore.h>
#include <ZQCore/foundation/Image.h>
#include <ZQCore/foundation/Log.h>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QPixmap>
#include <QPointer>

#include <syslog.h>

namespace gui {

namespace {

constexpr std::string_view kRefusedDevice = "AFC device ";

} // namespace

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
    // Phones that cannot be opened are only logged by the framework; the line names the
    // device, and a person needs to hear it here rather than in the system log.
    QPointer<DeviceWatcher> self(this);
    zq::setLogHandler([self](const std::string& line) {
        syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
        if (line.rfind(kRefusedDevice, 0) != 0)
            return;
        QMetaObject::invokeMethod(
            qApp, [self, line] { if (self) self->logLine(line); }, Qt::QueuedConnection);
    });
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
    zq::setLogHandler({});
}

void DeviceWatcher::refresh()
{
    devices_.clear();
    for (const auto& reference : zq::ZQCore::sharedInstance()->connectediPods())
        devices_.push_back(entryFor(reference));
    devices_.insert(devices_.end(), refused_.begin(), refused_.end());
    emit devicesChanged();
}

void DeviceWatcher::logLine(const std::string& line)
{
    // "AFC device SERIAL could not be opened: why"
    const std::string rest = line.substr(kRefusedDevice.size());
    const auto space = rest.find(' ');
    DeviceEntry entry;
    entry.name = tr("Phone %1").arg(QString::fromStdString(rest.substr(0, space)));
    entry.mobile = true;
    const bool trust = line.find("pairing") != std::string::npos || line.find("Pairing") != std::string::npos ||
                       line.find("StartSession") != std::string::npos || line.find("trust") != std::string::npos;
    entry.problem = trust ? tr("This computer is not trusted by the phone: unlock it and tap Trust, then "
                               "connect it again.")
                          : tr("The phone could not be opened: %1").arg(QString::fromStdString(line));
    refused_.push_back(entry);
    refresh();
}

} // namespace gui
