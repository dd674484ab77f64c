// Devices arriving and leaving while the window runs, through the device simulator: a private
// usbmuxd whose phones the real client library meets as it would real ones. The framework's
// notices reach the window through Qt's event loop (GLib's main context), with nothing polled.

#include "TestSupport.h"

#include "MainWindow.h"
#include "Screenshot.h"

#include "tests/support/SimulatedDevice.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QTreeWidget>

using namespace guitest;

namespace {

QTreeWidgetItem* devicesSection(gui::MainWindow& window)
{
    return window.sidebar()->topLevelItem(0);
}

QStringList deviceNames(gui::MainWindow& window)
{
    QStringList names;
    QTreeWidgetItem* section = devicesSection(window);
    for (int i = 0; i < section->childCount(); ++i)
        names << section->child(i)->text(0);
    return names;
}

} // namespace

class DevicesTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void appearsAndDisappears();
    void leavesWhileShown();
    void untrustedPhoneSaysWhatToDo();
    void cancelStopsAStalledPhone();

private:
    std::unique_ptr<zq::test::SimulatedUsbmuxd> simulator_;
    std::unique_ptr<SampleDevice> phone_;
    std::unique_ptr<gui::MainWindow> window_;
};

void DevicesTest::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(gui::DeviceWatcher::eventLoopRunsGLib());
    // The simulator must answer before the framework first subscribes to device events.
    simulator_ = std::make_unique<zq::test::SimulatedUsbmuxd>(zq::test::SimulatedUsbmuxd::Listen::Tcp);
    simulator_->exportAddress();
    phone_ = std::make_unique<SampleDevice>(QStringList{QStringLiteral("--phone=modern")});
    QVERIFY2(phone_->valid(), qPrintable(phone_->error()));
    window_ = std::make_unique<gui::MainWindow>(true);
    window_->resize(1100, 700);
    window_->show();
    QCOMPARE(devicesSection(*window_)->childCount(), 0);
}

void DevicesTest::cleanupTestCase()
{
    window_.reset();
    simulator_.reset();
}

// A phone attached shows up (name and model), loads when chosen with the listing's tracks, and
// goes when it is detached.
void DevicesTest::appearsAndDisappears()
{
    zq::test::SimulatedDeviceSpec setup;
    setup.udid = "00008101-1001GUI";
    setup.root = phone_->path().toStdString();
    setup.deviceName = "Alex iPhone";
    simulator_->attach(setup);
    QTRY_COMPARE_WITH_TIMEOUT(devicesSection(*window_)->childCount(), 1, 15000);
    QTreeWidgetItem* item = devicesSection(*window_)->child(0);
    window_->sidebar()->setCurrentItem(item);
    QTRY_VERIFY_WITH_TIMEOUT(!window_->loader()->isLoading(), 30000);
    QVERIFY2(window_->noticeLabel()->isHidden(), qPrintable(window_->noticeLabel()->text()));
    QVERIFY(window_->libraryItem());
    QVERIFY2(window_->noticeLabel()->isHidden(), qPrintable(window_->noticeLabel()->text()));
    const QJsonObject listing = libraryListing(phone_->path());
    QCOMPARE(window_->trackModel()->rowCount(), listing.value(QStringLiteral("tracks")).toArray().size());

    simulator_->detach(setup.udid);
    // Shown, so it stays listed as gone rather than vanishing under the person's eyes.
    QTRY_VERIFY_WITH_TIMEOUT(item->text(0).contains(QStringLiteral("Disconnected")), 15000);
    QVERIFY(item->isDisabled());
    QVERIFY(window_->noticeLabel()->text().contains(QStringLiteral("disconnected")));
    QCOMPARE(window_->trackModel()->rowCount(), listing.value(QStringLiteral("tracks")).toArray().size());

    // Back again: the same entry, connected.
    simulator_->attach(setup);
    QTRY_VERIFY_WITH_TIMEOUT(!item->isDisabled(), 15000);
    QCOMPARE(devicesSection(*window_)->childCount(), 1);
}

// A device that leaves while another is shown leaves the list; the window goes on.
void DevicesTest::leavesWhileShown()
{
    zq::test::SimulatedDeviceSpec second;
    second.udid = "00008101-1002GUI";
    second.root = phone_->path().toStdString();
    second.deviceName = "Second iPhone";
    second.serialNumber = "F2LZK0SECOND";
    const int before = devicesSection(*window_)->childCount();
    simulator_->attach(second);
    QTRY_COMPARE_WITH_TIMEOUT(devicesSection(*window_)->childCount(), before + 1, 15000);
    simulator_->detach(second.udid);
    QTRY_COMPARE_WITH_TIMEOUT(devicesSection(*window_)->childCount(), before, 15000);
    simulator_->detach("00008101-1001GUI");
    QTRY_VERIFY_WITH_TIMEOUT(devicesSection(*window_)->child(0)->isDisabled(), 15000);
    QVERIFY(window_->trackModel()->rowCount() > 0);
}

// A phone that does not trust this computer is listed with what to do about it.
void DevicesTest::untrustedPhoneSaysWhatToDo()
{
    zq::test::SimulatedDeviceSpec setup;
    setup.udid = "00008101-1003GUI";
    setup.root = phone_->path().toStdString();
    setup.serialNumber = "F2LZK0UNPAIR";
    setup.paired = false;
    const int before = devicesSection(*window_)->childCount();
    simulator_->attach(setup);
    QTRY_COMPARE_WITH_TIMEOUT(devicesSection(*window_)->childCount(), before + 1, 15000);
    QTreeWidgetItem* item = nullptr;
    for (int i = 0; i < devicesSection(*window_)->childCount(); ++i)
        if (devicesSection(*window_)->child(i)->text(0).contains(QStringLiteral("F2LZK0UNPAIR")))
            item = devicesSection(*window_)->child(i);
    QVERIFY2(item, qPrintable(deviceNames(*window_).join(QStringLiteral(" | "))));
    QVERIFY(item->toolTip(0).contains(QStringLiteral("tap Trust")));
    window_->sidebar()->setCurrentItem(item);
    QVERIFY(window_->noticeLabel()->text().contains(QStringLiteral("unlock it and tap Trust")));
    simulator_->detach(setup.udid);
    QTRY_COMPARE_WITH_TIMEOUT(devicesSection(*window_)->childCount(), before, 15000);
}

// A phone that stops answering mid-load: Cancel cuts the load's requests (its thread ends well
// before the request timeout), and the next open of the same phone loads it.
void DevicesTest::cancelStopsAStalledPhone()
{
    zq::test::SimulatedDeviceSpec setup;
    setup.udid = "00008101-1004GUI";
    setup.root = phone_->path().toStdString();
    setup.serialNumber = "F2LZK0STALLS";
    setup.faults = "stallAt=/iTunes_Control/iTunes/MediaLibrary.sqlitedb@0";
    const int before = devicesSection(*window_)->childCount();
    simulator_->attach(setup);
    QTRY_COMPARE_WITH_TIMEOUT(devicesSection(*window_)->childCount(), before + 1, 15000);
    QTreeWidgetItem* item = findItem(devicesSection(*window_), QStringLiteral("F2LZK0STALLS"));
    for (int i = 0; !item && i < devicesSection(*window_)->childCount(); ++i)
        if (!devicesSection(*window_)->child(i)->isDisabled() && devicesSection(*window_)->child(i)->childCount() == 0)
            item = devicesSection(*window_)->child(i);
    QVERIFY(item);
    window_->sidebar()->setCurrentItem(item);
    QVERIFY(window_->loader()->isLoading());
    QTest::qWait(500);  // well into the stalled read
    QVERIFY(window_->loader()->isLoading());
    QElapsedTimer stopped;
    stopped.start();
    QTest::mouseClick(window_->cancelButton(), Qt::LeftButton);
    QVERIFY(!window_->loader()->isLoading());
    QTRY_COMPARE_WITH_TIMEOUT(window_->loader()->runningThreads(), 0, 3000);
    QVERIFY(stopped.elapsed() < 3000);
    // The stall was one read's: choosing the phone again loads it.
    window_->sidebar()->setCurrentItem(nullptr);
    window_->sidebar()->setCurrentItem(item);
    QTRY_VERIFY_WITH_TIMEOUT(!window_->loader()->isLoading(), 15000);
    QVERIFY2(window_->noticeLabel()->isHidden(), qPrintable(window_->noticeLabel()->text()));
    const QJsonObject listing = libraryListing(phone_->path());
    simulator_->detach(setup.udid);
    QCOMPARE(window_->trackModel()->rowCount(), listing.value(QStringLiteral("tracks")).toArray().size());
}

QTEST_MAIN(DevicesTest)
#include "devices_test.moc"
