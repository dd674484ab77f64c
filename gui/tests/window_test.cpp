// The real window on an X server (run under Xvfb): shown, exposed and driven by the keyboard
// alone, as a person who does not use a mouse would.

#include "TestSupport.h"

#include "MainWindow.h"
#include "Screenshot.h"

#include <QApplication>
#include <QLineEdit>
#include <QListView>
#include <QSettings>
#include <QStandardPaths>
#include <QTableView>
#include <QTest>
#include <QTreeWidget>

using namespace guitest;

class WindowTest : public QObject {
    Q_OBJECT

private slots:
    void keyboardOnly();
};

void WindowTest::keyboardOnly()
{
    QStandardPaths::setTestModeEnabled(true);
    QSettings().clear();
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    SampleDevice sample;
    QVERIFY2(sample.valid(), qPrintable(sample.error()));
    gui::MainWindow window(false);
    window.resize(1200, 760);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(gui::showDeviceAndWait(window, sample.path()).isEmpty());
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const int all = window.trackModel()->rowCount();
    QVERIFY(all > 3);

    // Ctrl+F goes to the filter; typing filters; Tab reaches the table; the arrows pick a track
    // and the detail pane follows.
    QTest::keyClick(&window, Qt::Key_F, Qt::ControlModifier);
    QTRY_VERIFY(window.filterField()->hasFocus());
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("pines"));
    QCOMPARE(window.trackModel()->rowCount(), 3);
    window.trackView()->setFocus(Qt::TabFocusReason);
    QTRY_VERIFY(window.trackView()->hasFocus());
    QTest::keyClick(window.trackView(), Qt::Key_Home);
    QTest::keyClick(window.trackView(), Qt::Key_Down);
    const auto second = window.trackModel()->trackAt(1);
    QVERIFY(second);
    QTRY_COMPARE(window.trackView()->currentIndex().row(), 1);
    QTableWidget* fields = window.detailPane()->fields();
    QVERIFY(fields->rowCount() > 0);
    QCOMPARE(fields->item(0, 1)->text(), QString::fromStdString(second->title().value_or("")));

    // Escape-free clearing: Ctrl+F again and Delete empties the filter.
    QTest::keyClick(&window, Qt::Key_F, Qt::ControlModifier);
    QTest::keyClick(window.filterField(), Qt::Key_Delete);
    QCOMPARE(window.trackModel()->rowCount(), all);
    // Ctrl+2 shows the albums, Ctrl+1 the tracks again.
    QTest::keyClick(&window, Qt::Key_2, Qt::ControlModifier);
    QVERIFY(window.albumView()->isVisible());
    QTest::keyClick(&window, Qt::Key_1, Qt::ControlModifier);
    QVERIFY(window.trackView()->isVisible());
    window.grab().save(outputPath(QStringLiteral("xvfb-window.png")));
}

QTEST_MAIN(WindowTest)
#include "window_test.moc"
