#pragma once
// The connected devices as the framework announces them: disk-mode iPods as their volumes
// mount, phones as they attach. The framework delivers its notices on GLib's default main
// context, which Qt's event loop runs on Linux (its GLib event dispatcher), so they arrive on
// the UI thread with nothing polled. A phone that cannot be opened (above all one that does not
// trust this computer) never becomes a device of the framework; the framework posts it with the
// kind of failure, and that is what is shown, with what to do about it.

#include <ZQCore/device/ZQCoreiPodRef.h>
#include <ZQCore/foundation/NotificationCenter.h>
#include <ZQCore/foundation/Observable.h>

#include <QIcon>
#include <QObject>
#include <QString>

#include <any>
#include <memory>
#include <vector>

namespace gui {

struct DeviceEntry {
    std::shared_ptr<zq::ZQCoreiPodRef> reference;  // null for a phone that refused this computer
    QString name;
    QString modelName;  // "iPod classic (6th generation)"; empty when unknown
    QString capacity;   // "80 GB"; empty when unknown
    QIcon icon;
    bool mobile = false;
    QString problem;  // what to do about a phone that cannot be read
};

class DeviceWatcher : public QObject {
    Q_OBJECT
public:
    explicit DeviceWatcher(QObject* parent = nullptr);
    ~DeviceWatcher() override;

    /// Whether the framework's notices can arrive: Qt runs GLib's main context.
    static bool eventLoopRunsGLib();

    const std::vector<DeviceEntry>& devices() const { return devices_; }
    static DeviceEntry entryFor(const std::shared_ptr<zq::ZQCoreiPodRef>& reference);

signals:
    void devicesChanged();

private:
    void refresh();
    void couldNotOpen(const std::any& failure);

    std::vector<DeviceEntry> devices_;
    std::vector<DeviceEntry> refused_;
    zq::Observable::Token token_ = 0;
    zq::NotificationCenter::Token departureToken_ = 0;
    zq::NotificationCenter::Token failureToken_ = 0;
};

/// The framework's picture (its pixels) as an icon.
QIcon iconFromImage(const std::shared_ptr<zq::Image>& image);

} // namespace gui
