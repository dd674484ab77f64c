#include "Screenshot.h"

#include "MainWindow.h"

#include <ZQCore/afc/AFCFactory.h>
#include <ZQCore/device/ZQCore.h>

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QSettings>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>

#include <chrono>
#include <cstdio>

namespace gui {

QString showDeviceAndWait(MainWindow& window, const QString& device, int timeoutMilliseconds)
{
    QEventLoop loop;
    QString failure;
    bool finished = false;
    auto connections = {
        QObject::connect(window.loader(), &LibraryLoader::loaded, &loop, [&] { finished = true; loop.quit(); }),
        QObject::connect(window.loader(), &LibraryLoader::failed, &loop,
                         [&](const QString&, const QString& reason) {
                             failure = reason;
                             finished = true;
                             loop.quit();
                         }),
    };
    if (!device.isEmpty() && QFileInfo(device).isDir()) {
        window.openFolder(QFileInfo(device).absoluteFilePath());
    } else {
        // Phones present now are reported through the main loop; give them the time they need.
        zq::AFCFactory::factory()->waitForAttachedDevices(std::chrono::seconds(5));
        QApplication::processEvents();
        std::shared_ptr<zq::ZQCoreiPodRef> chosen;
        for (const auto& reference : zq::ZQCore::sharedInstance()->connectediPods()) {
            const QString name = QString::fromStdString(reference->name().value_or(""));
            const QString serial = QString::fromStdString(reference->serialNumber().value_or(""));
            if (device.isEmpty() || device == name || device == serial) {
                chosen = reference;
                break;
            }
        }
        if (!chosen)
            return device.isEmpty() ? QObject::tr("No device is connected.")
                                    : QObject::tr("No device folder or connected device is called %1.").arg(device);
        window.openDevice(chosen);
    }
    QTimer::singleShot(timeoutMilliseconds, &loop, [&] { loop.quit(); });
    if (window.loader()->isLoading())
        loop.exec();
    for (const auto& connection : connections)
        QObject::disconnect(connection);
    if (!failure.isEmpty())
        return failure;
    if (!finished)
        return QObject::tr("The library did not load in time.");
    // A track selected shows the detail pane filled in; then every cover asked for is decoded.
    if (window.trackModel()->rowCount() > 0)
        window.trackView()->selectRow(0);
    for (int round = 0; round < 3; ++round) {
        QApplication::processEvents();
        window.covers()->waitForIdle();
        QApplication::processEvents();
    }
    return {};
}

int runScreenshot(const QString& file, const QString& device)
{
    // The picture must not depend on how the person who makes it left their window.
    QTemporaryDir settings;
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settings.path());
    const bool byPath = !device.isEmpty() && QFileInfo(device).isDir();
    MainWindow window(!byPath);
    window.resize(1280, 780);
    window.show();
    const QString failure = showDeviceAndWait(window, device);
    if (!failure.isEmpty()) {
        std::fprintf(stderr, "zqpod-gui: %s\n", failure.toLocal8Bit().constData());
        return 1;
    }
    QApplication::processEvents();
    if (!window.grab().save(file, "PNG")) {
        std::fprintf(stderr, "zqpod-gui: could not write %s\n", file.toLocal8Bit().constData());
        return 1;
    }
    return 0;
}

} // namespace gui
