// The application's speed on a large library (offscreen): the time until the first rows are
// painted, each keystroke of a filter, a sort by every column, each step of scrolling the album
// grid, and the peak memory. Compared with `zqpod library` of the same device by run.sh.
//   gui_bench DEVICE-FOLDER

#include "MainWindow.h"
#include "Screenshot.h"
#include "TrackTableModel.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QLineEdit>
#include <QListView>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QTableView>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

namespace {

/// Events handled and the window painted: what a person waits for after an input.
void settle(QWidget& window)
{
    QApplication::processEvents();
    window.repaint();
}

} // namespace

int main(int argc, char** argv)
{
    if (!std::getenv("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: gui_bench DEVICE-FOLDER\n");
        return 2;
    }
    QStandardPaths::setTestModeEnabled(true);
    QElapsedTimer clock;
    clock.start();
    gui::MainWindow window(false);
    window.resize(1280, 780);
    window.show();
    const QString failure = gui::showDeviceAndWait(window, QString::fromLocal8Bit(argv[1]), 600000);
    if (!failure.isEmpty()) {
        std::fprintf(stderr, "gui_bench: %s\n", failure.toLocal8Bit().constData());
        return 1;
    }
    settle(window);
    const qint64 firstRows = clock.elapsed();
    const int tracks = window.trackModel()->rowCount();
    std::printf("tracks                 %d\n", tracks);
    std::printf("first rows painted     %lld ms (load and index %lld ms)\n", static_cast<long long>(firstRows),
                static_cast<long long>(window.loader()->lastLoadMilliseconds()));

    // A word typed key by key, then erased key by key.
    const QString word = QStringLiteral("track 4");
    qint64 worstKey = 0, totalKeys = 0;
    int keys = 0;
    for (int length = 1; length <= word.size(); ++length) {
        QElapsedTimer key;
        key.start();
        window.filterField()->setText(word.left(length));
        settle(window);
        worstKey = std::max(worstKey, key.elapsed());
        totalKeys += key.elapsed();
        ++keys;
        if (std::getenv("GUI_BENCH_VERBOSE"))
            std::printf("  \"%s\" %lld ms\n", qPrintable(word.left(length)), static_cast<long long>(key.elapsed()));
    }
    const int matched = window.trackModel()->rowCount();
    for (int length = word.size() - 1; length >= 0; --length) {
        QElapsedTimer key;
        key.start();
        window.filterField()->setText(word.left(length));
        settle(window);
        worstKey = std::max(worstKey, key.elapsed());
        totalKeys += key.elapsed();
        ++keys;
    }
    std::printf("filter keystroke       worst %lld ms, mean %.1f ms (%d keys; \"%s\" matched %d)\n",
                static_cast<long long>(worstKey), double(totalKeys) / keys, keys, qPrintable(word), matched);

    // Every column, both ways.
    qint64 worstSort = 0;
    int worstColumn = 0;
    for (int column = 0; column < gui::TrackTableModel::ColumnCount; ++column)
        for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
            QElapsedTimer sort;
            sort.start();
            window.trackView()->sortByColumn(column, order);
            settle(window);
            if (sort.elapsed() > worstSort) {
                worstSort = sort.elapsed();
                worstColumn = column;
            }
        }
    std::printf("sort                   worst %lld ms (%s)\n", static_cast<long long>(worstSort),
                qPrintable(window.trackModel()->headerData(worstColumn, Qt::Horizontal).toString()));

    // The album grid scrolled a page at a time: each step is what blocks the UI thread.
    window.trackView()->sortByColumn(-1, Qt::AscendingOrder);
    QElapsedTimer grid;
    grid.start();
    window.showAlbums(true);
    settle(window);
    std::printf("album grid shown       %lld ms (%d albums)\n", static_cast<long long>(grid.elapsed()),
                window.albumModel()->rowCount());
    int covers = 0;
    QObject::connect(window.covers(), &gui::CoverCache::coverReady, [&covers] { ++covers; });
    QScrollBar* bar = window.albumView()->verticalScrollBar();
    // The grid is laid out in batches between events; scrolled once it is laid out whole.
    for (int previous = -1; previous != bar->maximum();) {
        previous = bar->maximum();
        for (int i = 0; i < 20; ++i)
            QApplication::processEvents();
    }
    qint64 worstStep = 0;
    int steps = 0;
    while (bar->value() < bar->maximum() && steps < 400) {
        QElapsedTimer step;
        step.start();
        bar->setValue(bar->value() + bar->pageStep());
        settle(window);
        worstStep = std::max(worstStep, step.elapsed());
        ++steps;
    }
    std::printf("album grid scroll step worst %lld ms (%d steps of %d px, to %d px)\n", static_cast<long long>(worstStep),
                steps, bar->pageStep(), bar->value());
    std::printf("covers decoded meanwhile %d\n", covers);

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak memory            %ld MB\n", usage.ru_maxrss / 1024);
    return 0;
}
